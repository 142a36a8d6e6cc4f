#include <kestrel/BitmapContext.h>

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <filesystem>
#include <functional>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <kestrel/convert/ContactSheet.h>
#include <kestrel/convert/OutputFile.h>
#include <kestrel/convert/PictureFile.h>
#include <kestrel/convert/Pictures.h>
#include <kestrel/convert/Sprites.h>
#include "tools/cli/LookOptions.h"
#include "tools/cli/Text.h"
#include "tools/terminal/Interrupt.h"
#include "tools/terminal/Outcome.h"
#include "tools/terminal/ProgressDisplay.h"
#include "tools/verbs/Verbs.h"

using namespace kestrel;
namespace fs = std::filesystem;

namespace {

constexpr int64_t kSecond = 1000000;
constexpr int kSheetWidth = 1600;  // pixels, where no size is given
constexpr int kMostOfSheet = 100;  // columns or rows
constexpr PictureSize kSpriteSize{160, 90};

/// What was typed.
struct Typed {
  std::string input;
  std::string output;
  std::string time;
  std::string size;
  std::string sheet;
  std::string every;
  bool sprites = false;
  bool force = false;
  std::function<LookSettings()> look;
};

/// A time of the movie: in microseconds, or as a share of its length.
struct Moment {
  double share = 0.1;
  std::optional<int64_t> time = {};
};

Moment parseMoment(const std::string& text) {
  if (text.empty()) return {};
  if (!text.ends_with('%')) return {.share = 0, .time = parseTime("--time", text)};
  double percent = 0;
  const char* end = text.data() + text.size() - 1;
  const auto [read, error] = std::from_chars(text.data(), end, percent);
  if (error != std::errc{} || read != end || !(percent >= 0 && percent <= 100))
    throw wrongUsage(fmt::format("--time: '{}' is not a time such as 12.5, 1:02:03 or 50%", text));
  return {.share = percent / 100, .time = {}};
}

/// "4x5", columns by rows.
PictureSize parseGrid(const std::string& text) {
  const auto fail = [&] {
    return wrongUsage(
        fmt::format("--sheet: '{}' is not a number of columns and rows such as 4x5", text));
  };
  const size_t cross = text.find('x');
  if (cross == std::string::npos) throw fail();
  const auto number = [&](std::string_view part) {
    int value = 0;
    const auto [end, error] = std::from_chars(part.data(), part.data() + part.size(), value);
    if (error != std::errc{} || end != part.data() + part.size() || value < 1) throw fail();
    if (value > kMostOfSheet)
      throw wrongUsage(
          fmt::format("--sheet: '{}' has more than {} columns or rows", text, kMostOfSheet));
    return value;
  };
  return {number(std::string_view(text).substr(0, cross)),
          number(std::string_view(text).substr(cross + 1))};
}

/// The largest size of the picture's shape that fits the wanted one.
Size fitted(Size picture, const PictureSize& wanted) {
  double scale = wanted.width ? *wanted.width / picture.width : HUGE_VAL;
  if (wanted.height) scale = std::min(scale, *wanted.height / picture.height);
  const auto side = [&](double length) { return std::max(std::round(length * scale), 1.0); };
  return {side(picture.width), side(picture.height)};
}

double seconds(int64_t time) { return static_cast<double>(time) / kSecond; }

int pixels(double length) { return static_cast<int>(std::lround(length)); }

class Thumb {
 public:
  explicit Thumb(const Typed& typed) : typed_(typed), look_(typed.look()) {
    requireSense();
    if (!typed.size.empty()) size_ = parseSize("--size", typed.size);
    pictureFormatOf(typed.output);
  }

  int run() {
    if (typed_.sprites) return drawSprites();
    return typed_.sheet.empty() ? drawPicture() : drawSheet();
  }

 private:
  void requireSense() const {
    const bool hasSheet = !typed_.sheet.empty();
    if (hasSheet && typed_.sprites)
      throw wrongUsage("--sheet and --sprites exclude each other: give one of them");
    if (!typed_.time.empty() && (hasSheet || typed_.sprites))
      throw wrongUsage("--time says which picture: it has no sense for a sheet");
    if (!typed_.every.empty() && !typed_.sprites) throw wrongUsage("--every needs --sprites");
  }

  /// The size that pictures get: `size_`, else `usual`, but then no larger than they are.
  Size sizeFor(const Pictures& input, const PictureSize& usual) const {
    if (size_ && look_.zoom && size_->width && size_->height)
      return {static_cast<double>(*size_->width), static_cast<double>(*size_->height)};
    if (size_) return fitted(input.size(), *size_);
    const Size size = fitted(input.size(), usual);
    return size.width > input.size().width ? input.size() : size;
  }

  int64_t timeOf(const Moment& moment, const Pictures& input) const {
    const auto duration = input.duration();
    if (moment.time) {
      if (duration && *moment.time > *duration)
        throw wrongUsage(fmt::format("--time: '{}' lies behind the end of '{}', which is at {}",
                                     typed_.time, typed_.input, timeText(*duration)));
      return *moment.time;
    }
    if (!duration && !typed_.time.empty())
      throw failed(
          fmt::format("how long '{}' is cannot be known: give --time in seconds", typed_.input));
    return static_cast<int64_t>(static_cast<double>(duration.value_or(0)) * moment.share);
  }

  int64_t lengthOf(const Pictures& input) const {
    const auto duration = input.duration();
    if (!duration)
      throw failed(
          fmt::format("how long '{}' is cannot be known: there is no sheet of it", typed_.input));
    return *duration;
  }

  static std::string timeText(int64_t time) {
    return formatTime(static_cast<double>(time) / kSecond);
  }

  /// "0:07" or, where whole seconds are too coarse, "0:07.3".
  static std::string caption(int64_t time, bool inTenths) {
    const std::string text = timeText(time / kSecond * kSecond);
    return inTenths ? fmt::format("{}.{}", text, time % kSecond * 10 / kSecond) : text;
  }

  int drawPicture() const {
    const Moment moment = parseMoment(typed_.time);
    OutputFile target(typed_.output, typed_.force, typed_.input);
    Pictures input({.input = typed_.input, .look = look_}, interrupted);
    const int64_t time = timeOf(moment, input);
    input.setOutputSize(size_ ? sizeFor(input, *size_) : input.size());
    return finish(target, *input.pictureAt(time), input);
  }

  int drawSheet() const {
    const PictureSize grid = parseGrid(typed_.sheet);
    const int columns = *grid.width;
    const int count = columns * *grid.height;
    OutputFile target(typed_.output, typed_.force, typed_.input);
    Pictures input({.input = typed_.input, .look = look_}, interrupted);
    const int64_t length = lengthOf(input);
    const Size size =
        sizeFor(input, {ContactSheet::pictureWidthFor(columns, kSheetWidth), std::nullopt});
    input.setOutputSize(size);
    ContactSheet sheet({.columns = columns,
                        .rows = *grid.height,
                        .pictureWidth = pixels(size.width),
                        .pictureHeight = pixels(size.height),
                        .title = fs::path(typed_.input).filename().string(),
                        .facts = factsOf(input)});
    // In a short movie neighbours are less than a second apart.
    const bool inTenths = length / count < 2 * kSecond;
    ProgressDisplay progress(ProgressDisplay::Style::kBar);
    for (int i = 0; i < count; ++i) {
      const int64_t time = length * (2 * i + 1) / (2 * count);
      sheet.add(*input.pictureAt(time), caption(time, inTenths));
      progress.update({seconds(time), seconds(length), i + 1});
    }
    progress.finish();
    return finish(target, *shownBy(sheet.surface()), input);
  }

  int finish(OutputFile& target, const BitmapImage& picture, const Pictures& input) const {
    writePicture(target, picture);
    target.commit();
    return ::finish(input.report());
  }

  /// "1:02:03  ·  1920 × 1080  ·  25 fps".
  static std::string factsOf(const Pictures& input) {
    const Size size = input.size();
    const Rational rate = input.frameRate();
    const int64_t length = input.duration().value_or(0);
    std::string facts = fmt::format("{}  ·  {} × {}", caption(length, length < 10 * kSecond),
                                    size.width, size.height);
    if (rate.num > 0 && rate.den > 0)
      facts +=
          fmt::format("  ·  {} fps", formatNumber(static_cast<double>(rate.num) / rate.den, 2));
    return facts;
  }

  int drawSprites() const {
    const int64_t given = typed_.every.empty() ? 0 : parseTime("--every", typed_.every);
    if (!typed_.every.empty() && given <= 0)
      throw wrongUsage("--every: pictures must be some time apart");
    const fs::path textPath = fs::path(typed_.output).replace_extension(".vtt");
    OutputFile target(typed_.output, typed_.force, typed_.input);
    OutputFile textTarget(textPath.string(), typed_.force, typed_.input);
    Pictures input({.input = typed_.input, .look = look_}, interrupted);
    const int64_t length = lengthOf(input);
    const Size size = sizeFor(input, kSpriteSize);
    const SpritePlan plan = planSprites(length, given > 0 ? given : usualSpan(length),
                                        pixels(size.width), pixels(size.height));
    input.setOutputSize(size);
    BitmapContext surface(plan.columns * plan.width, plan.rows * plan.height);
    if (!surface.data()) throw std::bad_alloc();
    ProgressDisplay progress(ProgressDisplay::Style::kBar);
    int64_t count = 0;
    for (const auto& sprite : plan.sprites) {
      const int64_t middle = sprite.start + (sprite.end - sprite.start) / 2;
      const double bottom = surface.height() - sprite.y - plan.height;
      surface.drawImage(*input.pictureAt(middle), {{static_cast<double>(sprite.x), bottom}, size});
      progress.update({seconds(sprite.end), seconds(length), ++count});
    }
    progress.finish();
    textTarget.write(spriteText(plan, fs::path(typed_.output).filename().string()));
    writePicture(target, *shownBy(surface));
    target.commit();
    textTarget.commit();
    return ::finish(input.report());
  }

  const Typed& typed_;
  const LookSettings look_;
  std::optional<PictureSize> size_;
};

}  // namespace

void addThumbVerb(CommandLine& line) {
  const auto typed = std::make_shared<Typed>();
  Verb verb = line.addVerb("thumb", "Draw a picture, or a sheet of many, of a movie");
  verb.option("input", typed->input, "the movie to read").required().type("FILE");
  verb.option("output", typed->output, "the picture to write, .png or .jpg")
      .required()
      .type("FILE");
  verb.option("--time", typed->time,
              "the picture shown at a time, or at a share of the length such as 50% "
              "(default: 10%)")
      .type("TIME");
  verb.option("--size", typed->size,
              "the size to fit the picture, or each one of a sheet, into, in pixels "
              "(default: its own; a side '-' is free)")
      .type("WxH");
  verb.option("--sheet", typed->sheet,
              "a contact sheet: so many columns by rows, from all over the movie")
      .type("4x5");
  verb.flag("--sprites", typed->sprites,
            "a sheet for web players: pictures at equal steps, and a WebVTT file beside it "
            "that says which is where");
  verb.option("--every", typed->every,
              "the step of --sprites (default: one that makes at most 100 pictures)")
      .type("TIME");
  verb.flag("--force", typed->force, "replace an existing target");
  typed->look = addLookOptions(verb);
  verb.footer(
      "Example:\n  kestrel demo bars.mp4\n  kestrel thumb bars.mp4 bars.png --time 2.5\n"
      "  kestrel thumb --sheet 4x5 bars.mp4 sheet.jpg\n"
      "  kestrel thumb --sprites bars.mp4 sprites.jpg");
  verb.runs([typed] { return Thumb(*typed).run(); });
}
