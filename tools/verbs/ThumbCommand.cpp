#include <kestrel/convert/ContactSheet.h>
#include <kestrel/convert/Sprites.h>
#include <kestrel/convert/Thumbnail.h>
#include <kestrel/convert/Values.h>

#include <fmt/format.h>

#include <charconv>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "tools/cli/CommonOptions.h"
#include "tools/cli/KnownOptions.h"
#include "tools/terminal/Outcome.h"
#include "tools/terminal/ProgressDisplay.h"
#include "tools/verbs/Verbs.h"

using namespace kestrel;

namespace {

constexpr int kMostOfSheet = 100;  // columns or rows

/// What was typed.
struct Typed {
  std::string input;
  std::string output;
  std::string time;
  std::string size;
  std::string sheet;
  std::string every;
  TypedInput source;
  std::optional<int> quality;
  bool sprites = false;
  bool best = false;
  bool force = false;
};

struct Grid {
  int columns = 1;
  int rows = 1;
};

/// "4x5".
Grid parseGrid(const std::string& text) {
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

void requireSense(const Typed& typed) {
  const bool hasSheet = !typed.sheet.empty();
  if (hasSheet && typed.sprites)
    throw wrongUsage("--sheet and --sprites exclude each other: give one of them");
  if (!typed.time.empty() && (hasSheet || typed.sprites))
    throw wrongUsage("--time chooses one picture: it makes no sense for a sheet");
  if (!typed.every.empty() && !typed.sprites) throw wrongUsage("--every needs --sprites");
}

/// What the three kinds of settings have in common.
template <typename Settings>
Settings settingsOf(const Typed& typed, const LookSettings& look) {
  Settings settings;
  settings.input = typed.input;
  settings.title = typed.source.number();
  settings.angle = typed.source.angleNumber();
  settings.protocols = typed.source.protocols.list();
  settings.output = typed.output;
  settings.replaces = typed.force;
  settings.quality = typed.quality;
  settings.best = typed.best;
  settings.look = look;
  if (!typed.size.empty()) settings.size = parseSize("--size", typed.size);
  return settings;
}

int drawPicture(const Typed& typed, const LookSettings& look, const Events& events) {
  auto settings = settingsOf<ThumbnailSettings>(typed, look);
  if (!typed.time.empty()) settings.time = parseMoment("--time", typed.time);
  try {
    return finish(writeThumbnail(settings, events));
  } catch (const Failure& failure) {
    throw withTypedTime(failure, typed.time);
  }
}

int run(const Typed& typed, const Verb& verb) {
  LookSettings look;
  applyOptions(givenOptions(verb, knownLookOptions()), look);
  requireSubtitles(verb);
  requireSense(typed);
  ProgressDisplay progress(ProgressDisplay::Style::kBar);
  const Events events = progress.events();
  if (typed.sprites) {
    auto settings = settingsOf<SpritesSettings>(typed, look);
    if (!typed.every.empty()) settings.every = parseMoment("--every", typed.every);
    return finish(progress, writeSprites(settings, events));
  }
  if (typed.sheet.empty()) return drawPicture(typed, look, events);
  auto settings = settingsOf<ContactSheetSettings>(typed, look);
  const Grid grid = parseGrid(typed.sheet);
  settings.columns = grid.columns;
  settings.rows = grid.rows;
  return finish(progress, writeContactSheet(settings, events));
}

}  // namespace

void addThumbVerb(CommandLine& line) {
  const auto typed = std::make_shared<Typed>();
  Verb verb = line.addVerb("thumb", "Draw a picture, or a sheet of many, of a movie");
  verb.option("input", typed->input, "the movie to read").required().type("FILE");
  verb.option("output", typed->output, "the picture to write, .png, .jpg, .webp or .avif")
      .required()
      .type("FILE");
  verb.option("--time", typed->time,
              "the picture shown at a time, or at a share of the length such as 50% "
              "(default: 10%)")
      .type("TIME");
  verb.option("--size", typed->size,
              "the size to fit the picture, or each one of a sheet, into, in pixels "
              "(default: its own; a side '-' is free)")
      .type("WxH|720p|50%")
      .words({"480p", "720p", "1080p", "50%"});
  verb.option("--sheet", typed->sheet,
              "a contact sheet: so many columns by rows, from all over the movie")
      .type("4x5");
  verb.flag("--sprites", typed->sprites,
            "a sheet for web players: pictures at equal steps, and a WebVTT file beside it "
            "that says which is where");
  verb.option("--every", typed->every,
              "the step of --sprites (default: one that makes at most 100 pictures)")
      .type("TIME");
  verb.flag("--best", typed->best,
            "the best picture around the time, or of the movie, or of each part of a sheet: no "
            "black, blurred or changing one");
  verb.option("--quality", typed->quality,
              "of JPEG, WebP and AVIF (default: 94, 90 and 80); PNG loses nothing")
      .type("N")
      .within(0, 100);
  addInputOptions(verb, typed->source);
  verb.flag("--force", typed->force, "replace an existing target");
  addLookOptions(verb);
  verb.footer(
      "Example:\n  kestrel demo bars.mp4\n  kestrel thumb bars.mp4 bars.png --time 2.5\n"
      "  kestrel thumb --sheet 4x5 bars.mp4 sheet.jpg\n"
      "  kestrel thumb --sprites bars.mp4 sprites.jpg");
  verb.runs([typed, verb] { return run(*typed, verb); });
}
