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

struct AVSubtitleRect;

namespace kestrel {

class Image;
struct Size;

/// The text that an ASS dialogue line shows: what follows its last comma or closing brace, with
/// "\N" as a line feed. Fields, override codes and any earlier part of the text are dropped.
std::string subtitleTextOfLine(std::string_view line);

/// The looks of a script's styles by their names: whether each is bold, italic, underlined and
/// struck out.
using SubtitleStyles = std::map<std::string, std::array<bool, 4>, std::less<>>;

/// Reads them from the header of an ASS script, as a decoder answers it.
SubtitleStyles subtitleStylesOfHeader(std::string_view header);

/// The whole text that an ASS dialogue line shows, as markup: <b>, <i>, <u> and <s> for what its
/// style and its override codes switch on, line feeds for its line breaks, "&lt;", "&gt;" and
/// "&amp;" for these characters themselves. Other codes and drawings are left out.
std::string subtitleMarkupOfLine(std::string_view line, const SubtitleStyles& styles = {});

/// The picture of a bitmap rectangle, placed in video coordinates (lower-left origin) of a video
/// `videoHeight` pixels high; null when the rectangle holds no pixels.
std::shared_ptr<const Image> subtitleImageOfBitmap(const AVSubtitleRect& rect, int videoHeight);

/// The same as it is shown over a video for which it may not have been made: a subtitle is drawn on
/// a canvas, empty where that is not known, which may be larger or smaller than the video.
///
/// A canvas of square pixels, and one as wide as the video, is scaled alike in both directions;
/// what of it the video lacks has been cropped, so that the distance to the nearer edge stays,
/// above or below. The canvas of an older disc fills the video, as its pixels may have any shape.
std::shared_ptr<const Image> subtitleImageOnVideo(const AVSubtitleRect& rect, const Size& canvas,
                                                  const Size& video);

/// One picture over another; either may be null.
std::shared_ptr<const Image> subtitleImageOver(const std::shared_ptr<const Image>& image,
                                               const std::shared_ptr<const Image>& background);

/// The decoder's extra data for a disc's colours: "palette:", sixteen lower-case hexadecimal RGB
/// values each followed by a comma, and a line end. Out-of-range colours are not clamped: they
/// spill into their neighbours' bits, as players of these discs have always shown them.
std::string subtitlePaletteText(const SubtitlePalette& palette);

}  // namespace kestrel
