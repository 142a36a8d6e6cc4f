#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <kestrel/LMMediaSource.h>

struct AVCodecContext;
struct AVSubtitleRect;

namespace kestrel {

class Image;
struct Size;

/// The text that an ASS dialogue line shows: the part after its last comma or closing brace, with
/// "\N" as a line feed. Fields, override codes and earlier parts of the text are dropped.
std::string subtitleTextOfLine(std::string_view line);

/// The styles of a script by name: whether bold, italic, underlined and struck through.
using SubtitleStyles = std::map<std::string, std::array<bool, 4>, std::less<>>;

/// Parses the styles in an ASS script header, as provided by a decoder.
SubtitleStyles subtitleStylesOfHeader(std::string_view header);

/// The header of the script that a decoder of text makes of its stream; empty if there is none.
std::string_view subtitleHeaderOf(const AVCodecContext& decoder);

/// Whether a dialogue line has looks that its markup does not tell: places, colours, sizes, fonts.
bool isStyledLine(std::string_view line);

/// The complete text of an ASS dialogue line as markup: <b>, <i>, <u> and <s> for the formatting of
/// its style and override codes, line feeds for its line breaks, and "&lt;", "&gt;" and "&amp;" for
/// these characters. Other override codes and drawings are left out.
std::string subtitleMarkupOfLine(std::string_view line, const SubtitleStyles& styles = {});

/// The picture of a bitmap rectangle in the coordinates of a video `videoHeight` pixels high
/// (origin at the lower left); null if the rectangle has no pixels.
std::shared_ptr<const Image> subtitleImageOfBitmap(const AVSubtitleRect& rect, int videoHeight);

/// The same, fitted to a video. A subtitle is made for a canvas, empty if unknown, which may be
/// larger or smaller than the video.
///
/// A canvas with square pixels, or as wide as the video, is scaled uniformly; rows that the video
/// lacks count as cropped, so the distance to the nearer edge, upper or lower, is kept. The canvas
/// of an older disc (up to 576 lines) is stretched to the video: its pixels may have any shape.
std::shared_ptr<const Image> subtitleImageOnVideo(const AVSubtitleRect& rect, const Size& canvas,
                                                  const Size& video);

/// One picture drawn over another; either may be null.
std::shared_ptr<const Image> subtitleImageOver(const std::shared_ptr<const Image>& image,
                                               const std::shared_ptr<const Image>& background);

/// The decoder's extra data for a disc's colours: "palette:", sixteen lower-case hexadecimal RGB
/// values, each followed by a comma, and a line break. Out-of-range colours are not clamped: they
/// spill into neighbouring bits, as players of these discs have always shown them.
std::string subtitlePaletteText(const SubtitlePalette& palette);

}  // namespace kestrel
