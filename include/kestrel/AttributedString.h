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

/// What holds for a whole text.
struct TextAttributes {
  Font font;
  Color foregroundColor;
  ParagraphStyle paragraphStyle;
  double outline = 0;  ///< how far a border around the glyphs reaches, pixels; 0: there is none
  Color outlineColor = Color::black();

  bool operator==(const TextAttributes&) const = default;
};

/// What is different in a part of a text: what is set here is added to the attributes of the whole.
struct TextRun {
  size_t location = 0;  ///< the part's first byte
  size_t length = 0;    ///< bytes; what reaches beyond the text's end is left out
  bool bold = false;
  bool italic = false;
  bool underline = false;
  bool strikethrough = false;
  std::optional<Color> color =
      {};  ///< in place of the whole text's; of two runs' colours the later's

  bool operator==(const TextRun&) const = default;
};

/// Bits for laying out and drawing a text.
enum StringDrawingOptions : int {
  /// A rectangle's origin is the lower-left corner of the lines. Without it, the rectangle that
  /// `boundingRectWithSize` returns is placed around the first line's baseline, which is y = 0.
  kUsesLineFragmentOrigin = 1,

  /// Of a text that is higher than the rectangle only the lines that fit are shown, at least one,
  /// and the last of them ends in an ellipsis. Without it, such a text is cut at the lower edge.
  kTruncatesLastVisibleLine = 32,
};

/// A text with its looks, which can say how large it is and draw itself.
///
/// The text is UTF-8. Bytes that are not show as U+FFFD, line and paragraph separators of every
/// kind break the line, other control characters show as nothing. Scripts that run from right to
/// left, joined letters, stacked marks and coloured emoji come out as their readers expect; a
/// character that no installed font has shows as a box with its number. At most the first 16 KiB
/// are laid out.
///
/// Lines are wrapped to a width and placed from the top of their rectangle downwards. Line heights
/// and the advances of characters are whole pixels.
///
/// Nothing fails: what cannot be drawn (no text, a size or a rectangle that is empty or not finite)
/// is an empty rectangle or no picture. Reading and drawing may go on in several threads at once,
/// even of one object.
class KESTREL_API AttributedString {
 public:
  static constexpr int kDefaultOptions = kUsesLineFragmentOrigin | kTruncatesLastVisibleLine;

  AttributedString() = default;
  explicit AttributedString(std::string text, TextAttributes attributes = {},
                            std::vector<TextRun> runs = {});

  /// The text as it was given.
  const std::string& text() const { return text_; }
  const TextAttributes& attributes() const { return attributes_; }
  const std::vector<TextRun>& runs() const { return runs_; }

  /// The same without the white space and line breaks (Unicode's) at both ends; runs move along.
  AttributedString trimmed() const;

  /// The rectangle that the text takes when wrapped to `size.width`, in whole pixels, rounded up;
  /// `size.height` is a limit only with `kTruncatesLastVisibleLine`. An infinite width or height is
  /// no limit. It is never larger than its limits, and the text drawn into it has the same lines.
  ///
  /// The width is that of the widest line, the height that of all lines. Where ink reaches beyond
  /// them (italics at a line's ends, marks stacked above the first line) there is room for it.
  Rect boundingRectWithSize(const Size& size, int options = kDefaultOptions) const;

  /// Draws the text over what `context` shows, wrapped to the width of `rect`, its first line at
  /// the rectangle's upper edge; nothing shows outside of `rect`.
  void drawInRect(const Rect& rect, BitmapContext& context, int options = kDefaultOptions) const;

  /// The text in {0, 0, `size`} on a transparent picture of that size, in whole pixels rounded up.
  /// Null when the size is empty or not finite, or there is not enough memory.
  std::shared_ptr<const BitmapImage> bitmapImageWithSize(const Size& size,
                                                         int options = kDefaultOptions) const;

  bool operator==(const AttributedString&) const = default;

 private:
  std::string text_;
  TextAttributes attributes_;
  std::vector<TextRun> runs_;
};

}  // namespace kestrel
