#pragma once

#include <kestrel/AttributedString.h>

#include "platform/text/PangoOwners.h"

#include <string>
#include <vector>

namespace kestrel {

/// A text wrapped to a width and cut to a height, ready to be drawn. It belongs to the thread that
/// made it: fonts are cached per thread.
class TextLayout {
 public:
  /// Lays out `string` for a rectangle of `size`; an infinite side is no limit. With
  /// `truncates`, lines that do not fit into the height are left out and the last line that is left
  /// ends in an ellipsis. There are no lines when there is nothing to show or a side is not above
  /// 0.
  TextLayout(const AttributedString& string, const Size& size, bool truncates);

  bool isEmpty() const { return lines_.empty(); }

  /// The room that all lines take, in whole pixels; the width is not above the one that they were
  /// laid out for.
  double width() const;
  double height() const;

  /// How far below the upper edge the first line's baseline is; pixels.
  double firstBaseline() const { return topMargin() + lines_.front().baseline; }

  /// The part of the text's transparency that all of it shares: it is drawn as if that were 1, so
  /// that whoever asks for the pixels multiplies their alpha by it. That is how coloured glyphs
  /// fade along, too.
  double sharedAlpha() const { return sharedAlpha_; }

  /// Draws all lines into the rectangle of the size that they were laid out for, its upper left
  /// corner at the origin of `cairo`.
  void draw(cairo_t* cairo) const;

 private:
  /// Pixels, y downwards from the layout's upper edge, x from the line's own beginning.
  struct Line {
    PangoLayoutLine* line = nullptr;
    double baseline = 0;
    double bottom = 0;
    double width = 0;
    // How far ink reaches beyond that box: at the worse of both ends, upwards, downwards.
    double beside = 0;
    double above = 0;
    double below = 0;
  };

  void setText(const std::string& text);
  void truncateToHeight(const std::string& text);
  void readLines();
  size_t linesThatFit() const;
  double widest() const;
  double sideMargin() const;
  double topMargin() const { return lines_.front().above; }
  double leftEdgeOf(const Line& line, double margin) const;

  Size size_;
  TextAlignment alignment_;
  Color color_;
  double outline_ = 0;
  Color outlineColor_;
  double sharedAlpha_ = 0;
  LayoutPtr layout_;
  std::vector<Line> lines_;
};

/// The height of a font's lines, from its highest to its lowest stroke, for each pixel of its size.
double lineHeight(const Font& font);

}  // namespace kestrel
