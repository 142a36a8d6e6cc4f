#include "media/SubtitleContent.h"

#include <kestrel/BitmapImage.h>
#include <kestrel/FilterRegistry.h>
#include <kestrel/Image.h>

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <utility>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace kestrel {

namespace {

/// One colour, 0x00YYCrCb to 0x00RRGGBB, each component cut off towards zero.
uint32_t rgbOfYCrCb(uint32_t entry) {
  const double y = entry >> 16 & 0xFF;
  const double cr = static_cast<double>(entry >> 8 & 0xFF) - 128;
  const double cb = static_cast<double>(entry & 0xFF) - 128;
  const auto component = [](double value) {
    return static_cast<uint32_t>(static_cast<int32_t>(value));
  };
  return component(y + 1.4075 * cr) << 16 | component(y - 0.3455 * cb - 0.7169 * cr) << 8 |
         component(y + 1.779 * cb);
}

/// The fields before the text of a dialogue line as decoders answer it: order, layer, style, name,
/// three margins and effect.
constexpr int kFieldsBeforeStyle = 2;
constexpr int kFieldsBeforeText = 8;

/// What is left behind so many commas, or behind the last.
std::string_view afterFields(std::string_view line, int count) {
  for (int i = 0; i < count; ++i) {
    const size_t comma = line.find(',');
    if (comma == std::string_view::npos) return line;
    line.remove_prefix(comma + 1);
  }
  return line;
}

using Looks = std::array<bool, 4>;  // in the order of `kLookNames`
constexpr std::string_view kLookNames = "bius";
constexpr int kBoldWeight = 600;

/// "1" and "-1" switch a look on, 0 switches it off; bold may be a weight.
bool isOn(size_t look, int value) {
  return kLookNames[look] == 'b' && value > 1 ? value >= kBoldWeight : value != 0;
}

std::string_view trimmed(std::string_view text) {
  constexpr std::string_view kSpace = " \t\r\n";
  const size_t begin = text.find_first_not_of(kSpace);
  if (begin == std::string_view::npos) return {};
  return text.substr(begin, text.find_last_not_of(kSpace) + 1 - begin);
}

/// The values behind a line's colon, between its commas.
std::vector<std::string_view> valuesOf(std::string_view line) {
  std::vector<std::string_view> values;
  line.remove_prefix(line.find(':') + 1);
  for (;;) {
    const size_t comma = line.find(',');
    values.push_back(trimmed(line.substr(0, comma)));
    if (comma == std::string_view::npos) return values;
    line.remove_prefix(comma + 1);
  }
}

/// Turns a dialogue's text into markup whose tags are properly nested.
class MarkupWriter {
 public:
  MarkupWriter(std::string_view line, const SubtitleStyles& styles)
      : styles_(styles), text_(afterFields(line, kFieldsBeforeText)) {
    const std::string_view name = afterFields(line, kFieldsBeforeStyle);
    style_ = styleNamed(name.substr(0, name.find(',')));
    wanted_ = style_;
  }

  std::string markup() {
    while (!text_.empty()) {
      const size_t end = text_.front() == '{' ? text_.find('}') : std::string_view::npos;
      if (end != std::string_view::npos) {
        readCodes(text_.substr(1, end - 1));
        text_.remove_prefix(end + 1);
      } else {
        readCharacter();
      }
    }
    switchTo({});
    return std::move(markup_);
  }

 private:
  Looks styleNamed(std::string_view name) const {
    const auto found = styles_.find(trimmed(name));
    return found == styles_.end() ? Looks{} : found->second;
  }

  /// What stands between two braces: codes that begin with a backslash, and comments.
  void readCodes(std::string_view codes) {
    while (!codes.empty()) {
      const size_t begin = codes.find('\\');
      if (begin == std::string_view::npos) return;
      codes.remove_prefix(begin + 1);
      readCode(codes.substr(0, codes.find('\\')));
    }
  }

  /// "i1", "b0", "b700", "p1", "r"; anything else changes nothing here.
  void readCode(std::string_view code) {
    if (code == "r") wanted_ = style_;
    if (code.size() > 1 && code.front() == 'r') wanted_ = styleNamed(code.substr(1));
    if (code.size() < 2) return;
    int value = 0;
    const char* const end = code.data() + code.size();
    if (std::from_chars(code.data() + 1, end, value).ptr != end) return;
    if (code.front() == 'p') isDrawing_ = value != 0;
    if (const size_t look = kLookNames.find(code.front()); look != std::string_view::npos)
      wanted_[look] = isOn(look, value);
  }

  void readCharacter() {
    std::string_view shown = text_.substr(0, 1);
    size_t length = 1;
    if (text_.starts_with("\\N") || text_.starts_with("\\n")) {
      shown = "\n";
      length = 2;
    } else if (text_.starts_with("\\h")) {
      shown = "\u00A0";
      length = 2;
    } else if (shown == "<") {
      shown = "&lt;";
    } else if (shown == ">") {
      shown = "&gt;";
    } else if (shown == "&") {
      shown = "&amp;";
    }
    if (!isDrawing_) {
      switchTo(wanted_);
      markup_ += shown;
    }
    text_.remove_prefix(length);
  }

  /// Closes every tag and opens those that are wanted, where that makes a difference.
  void switchTo(const Looks& looks) {
    if (looks == open_) return;
    for (size_t i = open_.size(); i-- > 0;)
      if (open_[i]) markup_ += fmt::format("</{}>", kLookNames[i]);
    for (size_t i = 0; i < looks.size(); ++i)
      if (looks[i]) markup_ += fmt::format("<{}>", kLookNames[i]);
    open_ = looks;
  }

  const SubtitleStyles& styles_;
  std::string_view text_;
  std::string markup_;
  Looks style_{};
  Looks wanted_{};
  Looks open_{};
  bool isDrawing_ = false;
};

}  // namespace

std::string subtitleTextOfLine(std::string_view line) {
  const size_t cut = line.find_last_of(",}");
  std::string_view rest = cut == std::string_view::npos ? line : line.substr(cut + 1);
  std::string text;
  for (size_t end; (end = rest.find("\\N")) != std::string_view::npos; rest.remove_prefix(end + 2))
    text.append(rest.substr(0, end)).push_back('\n');
  return text.append(rest);
}

std::string_view subtitleHeaderOf(const AVCodecContext& decoder) {
  if (!decoder.subtitle_header || decoder.subtitle_header_size <= 0) return {};
  return {reinterpret_cast<const char*>(decoder.subtitle_header),
          static_cast<size_t>(decoder.subtitle_header_size)};
}

SubtitleStyles subtitleStylesOfHeader(std::string_view header) {
  constexpr std::array<std::string_view, 4> kColumns{"Bold", "Italic", "Underline", "StrikeOut"};
  SubtitleStyles styles;
  std::vector<std::string_view> columns;
  while (!header.empty()) {
    const size_t end = header.find('\n');
    const std::string_view line = trimmed(header.substr(0, end));
    header.remove_prefix(end == std::string_view::npos ? header.size() : end + 1);
    if (line == "[Events]") break;  // their format is another
    if (line.starts_with("Format:")) columns = valuesOf(line);
    if (!line.starts_with("Style:")) continue;
    const auto values = valuesOf(line);
    Looks looks{};
    for (size_t i = 1; i < std::min(columns.size(), values.size()); ++i) {
      const auto column = std::ranges::find(kColumns, columns[i]);
      int value = 0;
      std::from_chars(values[i].data(), values[i].data() + values[i].size(), value);
      if (column == kColumns.end()) continue;
      const auto look = static_cast<size_t>(column - kColumns.begin());
      looks[look] = isOn(look, value);
    }
    styles.insert_or_assign(std::string(values.front()), looks);
  }
  return styles;
}

bool isStyledLine(std::string_view line) {
  std::string_view text = afterFields(line, kFieldsBeforeText);
  for (size_t begin; (begin = text.find('{')) != std::string_view::npos;) {
    const size_t end = std::min(text.find('}', begin), text.size());
    std::string_view codes = text.substr(begin, end - begin);
    text.remove_prefix(end);
    for (size_t at; (at = codes.find('\\')) != std::string_view::npos;) {
      codes.remove_prefix(at + 1);
      const std::string_view code = codes.substr(0, codes.find('\\'));
      const bool isMarkup = code.empty() || code == "r" ||
                            (kLookNames.find(code.front()) != std::string_view::npos &&
                             code.find_first_not_of("0123456789 ", 1) == std::string_view::npos);
      if (!isMarkup) return true;
    }
  }
  return false;
}

std::string subtitleMarkupOfLine(std::string_view line, const SubtitleStyles& styles) {
  return MarkupWriter(line, styles).markup();
}

std::shared_ptr<const Image> subtitleImageOfBitmap(const AVSubtitleRect& rect, int videoHeight) {
  const int width = rect.w;
  const int height = rect.h;
  if (width <= 0 || height <= 0 || !rect.data[0] || !rect.data[1]) return nullptr;
  const auto rowBytes = static_cast<size_t>(width) * 4;
  std::shared_ptr<uint8_t[]> pixels(new uint8_t[rowBytes * static_cast<size_t>(height)]);
  uint8_t* out = pixels.get();
  for (int y = 0; y < height; ++y) {
    const uint8_t* indexes = rect.data[0] + static_cast<ptrdiff_t>(y) * rect.linesize[0];
    for (int x = 0; x < width; ++x, out += 4) {
      uint32_t argb = 0;  // palette entries are host-order 0xAARRGGBB
      std::memcpy(&argb, rect.data[1] + static_cast<size_t>(indexes[x]) * 4, sizeof argb);
      out[0] = static_cast<uint8_t>(argb >> 16);
      out[1] = static_cast<uint8_t>(argb >> 8);
      out[2] = static_cast<uint8_t>(argb);
      out[3] = static_cast<uint8_t>(argb >> 24);
    }
  }
  const auto bitmap =
      BitmapImage::sharing(std::move(pixels), width, height, static_cast<int>(rowBytes));
  return Image::fromBitmap(bitmap)->translated(rect.x, videoHeight - rect.y - height);
}

std::shared_ptr<const Image> subtitleImageOnVideo(const AVSubtitleRect& rect, const Size& canvas,
                                                  const Size& video) {
  const int videoHeight = static_cast<int>(video.height);
  const bool isCanvasKnown = canvas.width > 0 && canvas.height > 0;
  if (!isCanvasKnown || canvas == video || video.width <= 0)
    return subtitleImageOfBitmap(rect, videoHeight);
  const auto image = subtitleImageOfBitmap(rect, static_cast<int>(canvas.height));
  if (!image) return nullptr;
  constexpr double kMostLinesOfOlderDiscs = 576;
  const double sx = video.width / canvas.width;
  if (canvas.height <= kMostLinesOfOlderDiscs && sx != 1)
    return image->scaled(sx, video.height / canvas.height);
  const double below = canvas.height - rect.y - rect.h;
  const double lacking = below <= rect.y ? 0 : video.height - canvas.height * sx;
  return image->scaled(sx, sx)->translated(0, lacking);
}

std::shared_ptr<const Image> subtitleImageOver(const std::shared_ptr<const Image>& image,
                                               const std::shared_ptr<const Image>& background) {
  if (!image || !background) return image ? image : background;
  const auto filter = FilterRegistry::filterWithName("CISourceOverCompositing");
  filter->setValue(image, kCIInputImageKey);
  filter->setValue(background, kCIInputBackgroundImageKey);
  return filter->outputImage();
}

std::string subtitlePaletteText(const SubtitlePalette& palette) {
  std::string text = "palette:";
  for (const uint32_t entry : palette) text += fmt::format("{:x},", rgbOfYCrCb(entry));
  return text + "\n\r";
}

}  // namespace kestrel
