#include <kestrel/ImageContext.h>
#include <kestrel/LMFFFormat.h>
#include <kestrel/convert/Player.h>
#include <kestrel/convert/Values.h>

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "tools/cli/CommonOptions.h"
#include "tools/cli/KnownOptions.h"
#include "tools/terminal/Interrupt.h"
#include "tools/terminal/Keys.h"
#include "tools/terminal/Outcome.h"
#include "tools/terminal/Output.h"
#include "tools/terminal/PlayLine.h"
#include "tools/terminal/Terminal.h"
#include "tools/terminal/TerminalPicture.h"
#include "tools/verbs/Verbs.h"

using namespace kestrel;

namespace {

constexpr int64_t kSecond = 1000000;
constexpr double kLoudest = 1.3;  // by the keys; --volume may say more
constexpr double kLoudestTyped = 1000;
constexpr double kRateStep = 1.1;
constexpr double kVolumeStep = 0.02;
constexpr int kWait = 50;         // milliseconds from line to line
constexpr int kPictureWait = 33;  // and from picture to picture

/// What was typed.
struct Typed {
  std::string input;
  std::string start;
  std::string audioTracks;
  TypedInput source;
  double rate = 1;
  double volume = 1;
  bool picture = false;
  bool noInput = false;
  LookSettings look;
};

std::string_view fromEnvironment(const char* name) {
  const char* value = std::getenv(name);
  return value ? value : "";
}

/// Whether the terminal is not one of those known to have two colours.
bool showsColors() {
  const std::string_view name = fromEnvironment("TERM");
  return !name.empty() && name != "dumb" && !name.starts_with("vt");
}

/// Whether the environment names a character set that has half blocks, or none. Its locale need not
/// be installed here: what the terminal shows is decided where it is.
bool showsBlocks() {
  for (const char* const name : {"LC_ALL", "LC_CTYPE", "LANG"}) {
    std::string locale(fromEnvironment(name));
    if (locale.empty()) continue;
    std::ranges::transform(locale, locale.begin(), [](unsigned char c) { return std::tolower(c); });
    return locale.find("utf-8") != std::string::npos || locale.find("utf8") != std::string::npos;
  }
  return true;
}

PlayerSettings settingsOf(const Typed& typed) {
  return {.input = typed.input,
          .title = typed.source.number(),
          .angle = typed.source.angleNumber(),
          .protocols = typed.source.protocols.list(),
          .audioTracks = parseTrackChoice(typed.audioTracks),
          .withPictures = typed.picture,
          .look = typed.look};
}

void requireSense(const Typed& typed, const Verb& verb) {
  for (const char* option : {"--subtitles", "--subtitle-track"})
    if (verb.isGiven(option) && !typed.picture)
      throw wrongUsage(fmt::format("{} needs --picture", option));
  if (!(typed.rate >= Player::kSlowest && typed.rate <= Player::kFastest))
    throw wrongUsage(fmt::format("--rate: '{}' is not a factor from {} to {}", typed.rate,
                                 Player::kSlowest, Player::kFastest));
  if (!(typed.volume >= 0 && typed.volume <= kLoudestTyped))
    throw wrongUsage(
        fmt::format("--volume: '{}' is not a factor from 0 to {}", typed.volume, kLoudestTyped));
}

/// A player with keys and a line on the terminal.
class TerminalPlayer {
 public:
  explicit TerminalPlayer(const Typed& typed)
      : typed_(typed), volume_(typed.volume), player_(settingsOf(typed), interrupted) {
    if (!typed.start.empty()) start_ = startOf(typed);
    if (player_.duration() && start_ > 0 && start_ >= *player_.duration())
      throw wrongUsage(fmt::format("the start lies behind the end of '{}'", typed.input));
  }

  int run() {
    {
      Terminal terminal(!typed_.noInput);
      requirePictureTerminal(terminal);
      play(terminal);
      player_.pause();
      terminal.leave();
    }
    if (interrupted()) return kInterrupted;
    return finish(player_.report());
  }

 private:
  int64_t startOf(const Typed& typed) const {
    const auto start = parseMoment("--start", typed.start).within(player_.duration());
    if (!start)
      throw wrongUsage(
          fmt::format("--start: how long '{}' is cannot be known: give a time in place of a share",
                      typed.input));
    return *start;
  }

  void requirePictureTerminal(const Terminal& terminal) const {
    if (!typed_.picture) return;
    if (!terminal.isStandardOutput() || !showsColors())
      throw wrongUsage("--picture needs standard output to be a terminal that shows colours");
    if (!showsBlocks())
      throw wrongUsage("--picture needs a locale of UTF-8, such as LC_ALL=C.UTF-8");
  }

  void play(Terminal& terminal) {
    player_.setRate(typed_.rate);
    player_.setVolume(volume_);
    if (start_ > 0) player_.seek(start_);
    player_.play();
    if (player_.lacksDevice()) say("there is no audio device: playing without being heard");
    while (!wantsQuit_ && !interrupted() && !player_.isAtEnd()) {
      if (typed_.picture && terminal.isShown()) drawPicture(terminal.size());
      show(terminal);
      for (const PlayKey key : keys_.read(terminal.read(typed_.picture ? kPictureWait : kWait)))
        obey(key, terminal);
    }
    show(terminal);
  }

  void obey(PlayKey key, Terminal& terminal) {
    switch (key) {
      case PlayKey::kPause:
        return player_.isPlaying() ? player_.pause() : player_.play();
      case PlayKey::kBack:
        return seekBy(-5 * kSecond);
      case PlayKey::kForward:
        return seekBy(5 * kSecond);
      case PlayKey::kFarBack:
        return seekBy(-60 * kSecond);
      case PlayKey::kFarForward:
        return seekBy(60 * kSecond);
      case PlayKey::kToStart:
        return player_.seek(0);
      case PlayKey::kSlower:
        return setRate(player_.rate() / kRateStep);
      case PlayKey::kFaster:
        return setRate(player_.rate() * kRateStep);
      case PlayKey::kHalfAsFast:
        return setRate(player_.rate() / 2.0);
      case PlayKey::kTwiceAsFast:
        return setRate(player_.rate() * 2.0);
      case PlayKey::kUsualSpeed:
        return setRate(1);
      case PlayKey::kQuieter:
        return setVolume(volume_ - kVolumeStep);
      case PlayKey::kLouder:
        return setVolume(std::min(volume_ + kVolumeStep, std::max(volume_, kLoudest)));
      case PlayKey::kMute:
        isMuted_ = !isMuted_;
        return setVolume(volume_);
      case PlayKey::kSuspend:
        return terminal.suspend();
      case PlayKey::kQuit:
        wantsQuit_ = true;
    }
  }

  void seekBy(int64_t step) { player_.seek(player_.time() + step); }

  /// A rate that is within half a step of 1 is meant to be 1.
  void setRate(double rate) { player_.setRate(std::abs(rate - 1) < 0.02 ? 1 : rate); }

  void setVolume(double volume) {
    volume_ = std::max(volume, 0.0);
    player_.setVolume(isMuted_ ? 0 : volume_);
  }

  void show(Terminal& terminal) {
    if (!terminal.isShown()) return;
    const TerminalSize size = terminal.size();
    const auto duration = player_.duration();
    const PlayState state{
        .time = lm_ff_time_to_double(player_.time()),
        .duration = duration ? std::optional(lm_ff_time_to_double(*duration)) : std::nullopt,
        .rate = player_.rate(),
        .volume = volume_,
        .isPaused = !player_.isPlaying(),
        .isMuted = isMuted_,
        .peaks = {player_.takePeak(0), player_.takePeak(1)}};
    std::string text = playLine(state, size.columns);
    {
      const std::lock_guard guard(lock_);
      if (pictureTerminal_ == size) text += picture_;
    }
    terminal.show(text);
  }

  void drawPicture(TerminalSize terminal) {
    const Size size = terminalPictureSize(player_.displayAspect(), terminal);
    player_.drawPicture(size, [this, size, terminal](const std::shared_ptr<const Image>& image) {
      const auto bitmap = context_.bitmapImage(image, {{0, 0}, size});
      if (!bitmap) return;
      std::string picture = terminalPicture(*bitmap);
      const std::lock_guard guard(lock_);
      picture_ = std::move(picture);
      pictureTerminal_ = terminal;
    });
  }

  const Typed& typed_;
  int64_t start_ = 0;
  double volume_ = 1;
  bool isMuted_ = false;
  bool wantsQuit_ = false;
  KeyReader keys_;

  ImageContext context_;  // of the thread that decodes
  std::mutex lock_;       // of the next two
  std::string picture_;
  TerminalSize pictureTerminal_;  // which it was made for

  Player player_;
};

}  // namespace

void addPlayVerb(CommandLine& line) {
  const auto typed = std::make_shared<Typed>();
  Verb verb = line.addVerb("play", "Play a movie's sound");
  verb.option("input", typed->input, "the movie to play").required().type("FILE");
  addInputOptions(verb, typed->source);
  verb.option("--start", typed->start, "where to begin (default: 0)").type("TIME");
  verb.option("--rate", typed->rate,
              "factor on the tempo, from 0.25 to 4; the pitch stays (default: 1)")
      .type("X");
  verb.option("--volume", typed->volume, "factor on the loudness, from 0 to 1000 (default: 1)")
      .type("X");
  verb.option("--audio-tracks", typed->audioTracks,
              "tracks to mix: numbers from 0, 'all', or a language code")
      .type("0,2|all|LANG")
      .words({"all"})
      .asks("sound-tracks");
  verb.flag("--picture", typed->picture, "show the pictures, too, in characters");
  addSubtitleOptions(verb);
  verb.flag("--no-input", typed->noInput, "read no keys");
  verb.footer(
      "Keys:\n"
      "  space, p        pause, and go on\n"
      "  left, right     5 seconds back or forward\n"
      "  down, up        a minute back or forward\n"
      "  home            to the start\n"
      "  [ ]             a tenth slower or faster\n"
      "  { }             half or twice as fast\n"
      "  backspace       the usual speed\n"
      "  9 0             quieter or louder (also / and *)\n"
      "  m               silent, and not\n"
      "  q               quit\n\n"
      "Example:\n  kestrel demo bars.mp4\n  kestrel play bars.mp4 --start 2 --rate 1.5");
  verb.runs([typed, verb] {
    applyOptions(givenOptions(verb, knownLookOptions()), typed->look);
    requireSense(*typed, verb);
    return TerminalPlayer(*typed).run();
  });
}
