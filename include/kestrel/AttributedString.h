#pragma once

#include <kestrel/BitmapContext.h>
#include <kestrel/BitmapImage.h>
#include <kestrel/Color.h>
#include <kestrel/Export.h>
#include <kestrel/Font.h>
#include <kestrel/Geometry.h>
#include <kestrel/ParagraphStyle.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kestrel {

/// Attributes of a whole text.
struct TextAttributes {
  Font font;
  Color foregroundColor;
  ParagraphStyle paragraphStyle;
  double outline = 0;  ///< width of the border around the glyphs, pixels; 0: no border
  Color outlineColor = Color::black();

  bool operator==(const TextAttributes&) const = default;
};

/// Attributes of a part of a text, in addition to those of the whole.
struct TextRun {
  size_t location = 0;  ///< offset of the first byte
  size_t length = 0;    ///< bytes; clipped to the end of the text
  bool bold = false;
  bool italic = false;
  bool underline = false;
  bool strikethrough = false;
  /// Replaces the whole text's; where runs overlap, the later one's counts.
  std::optional<Color> color = {};

  bool operator==(const TextRun&) const = default;
};

/// Flags for layout and drawing.
enum StringDrawingOptions : int {
  /// The origin of a rectangle is the lower-left corner of the lines. Without this flag, the
  /// rectangle that `boundingRectWithSize` returns is relative to the first line's baseline, at
  /// y = 0.
  kUsesLineFragmentOrigin = 1,

  /// If the text is higher than the rectangle, only the lines that fit are shown, but at least one,
  /// and the last of them ends in an ellipsis. Without this flag, the text is cut at the lower
  /// edge.
  kTruncatesLastVisibleLine = 32,
};

/// A text with attributes that can be measured and drawn.
///
/// The text is UTF-8; invalid bytes show as U+FFFD. All kinds of line and paragraph separators
/// break the line; other control characters are not shown. Right-to-left scripts, ligatures,
/// combining marks and coloured emoji are supported; a character that no installed font has shows
/// as a box with its code. At most the first 16 KiB are laid out.
///
/// Lines are wrapped to a width and placed downwards from the top of their rectangle. Line heights
/// and character advances are whole pixels.
///
/// Nothing fails: what cannot be drawn (an empty text, a size or rectangle that is empty or not
/// finite) gives an empty rectangle or no picture. Several threads may read and draw the same
/// object at once.
class KESTREL_API AttributedString {
 public:
  static constexpr int kDefaultOptions = kUsesLineFragmentOrigin | kTruncatesLastVisibleLine;

  AttributedString() = default;
  explicit AttributedString(std::string text, TextAttributes attributes = {},
                            std::vector<TextRun> runs = {});

  const std::string& text() const { return text_; }
  const TextAttributes& attributes() const { return attributes_; }
  const std::vector<TextRun>& runs() const { return runs_; }

  /// A copy without leading and trailing Unicode white space and line breaks; runs are shifted to
  /// match.
  AttributedString trimmed() const;

  /// The rectangle that the text takes up when wrapped to `size.width`, in whole pixels, rounded
  /// up. `size.height` is a limit only with `kTruncatesLastVisibleLine`. An infinite width or
  /// height means no limit. The result never exceeds the limits, and text drawn into it breaks into
  /// the same lines.
  ///
  /// The width is that of the widest line, the height that of all lines, including ink that extends
  /// beyond them (italics at the ends of lines, marks stacked above the first line).
  Rect boundingRectWithSize(const Size& size, int options = kDefaultOptions) const;

  /// Draws the text over the contents of `context`, wrapped to the width of `rect`, starting at its
  /// upper edge and clipped to it.
  void drawInRect(const Rect& rect, BitmapContext& context, int options = kDefaultOptions) const;

  /// The text drawn in {0, 0, `size`} on a transparent picture of that size, rounded up to whole
  /// pixels. Null if the size is empty or not finite, or if memory runs out.
  std::shared_ptr<const BitmapImage> bitmapImageWithSize(const Size& size,
                                                         int options = kDefaultOptions) const;

  bool operator==(const AttributedString&) const = default;

 private:
  std::string text_;
  TextAttributes attributes_;
  std::vector<TextRun> runs_;
};

}  // namespace kestrel
