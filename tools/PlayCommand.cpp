#include "PlayCommand.h"

#include <kestrel/AudioGraph.h>
#include <kestrel/ImageContext.h>
#include <kestrel/LMFFMedia.h>
#include <kestrel/LMFFMediaStream.h>
#include <kestrel/LMFFMovie.h>
#include <kestrel/LMFFMovieImageProvider.h>
#include <kestrel/LMMediaSource.h>
#include <kestrel/LMOutputAudioGraph.h>

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <atomic>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "ConvertPlan.h"
#include "Failure.h"
#include "Input.h"
#include "Interrupt.h"
#include "Keys.h"
#include "Look.h"
#include "PlayLine.h"
#include "Say.h"
#include "Terminal.h"
#include "TerminalPicture.h"
#include "Text.h"

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/parseutils.h>
}

using namespace kestrel;

namespace {

constexpr int64_t kSecond = 1000000;
constexpr double kSlowest = 0.25;
constexpr double kFastest = 4;
constexpr double kLoudest = 1.3;  // by the keys; --volume may say more
constexpr double kLoudestTyped = 1000;
constexpr double kRateStep = 1.1;
constexpr double kVolumeStep = 0.02;
constexpr int kWait = 50;         // milliseconds from line to line
constexpr int kPictureWait = 33;  // and from picture to picture

/// An input that ends this much before its stated length has ended early.
constexpr int64_t kMissingTolerance = kSecond;

/// What was typed.
struct Typed {
  std::string input;
  std::string start;
  std::string audioTracks;
  std::string title;
  double rate = 1;
  double volume = 1;
  bool picture = false;
  bool noInput = false;
};

/// How long a stream says that it is, microseconds; 0 where it does not. Matroska has a tag for it.
int64_t statedLength(const AVStream& stream) {
  if (stream.duration > 0) return av_rescale_q(stream.duration, stream.time_base, {1, kSecond});
  const AVDictionaryEntry* tag = av_dict_get(stream.metadata, "DURATION", nullptr, 0);
  int64_t length = 0;
  return tag && av_parse_time(&length, tag->value, 1) >= 0 ? length : 0;
}

/// The container index of the pictures, below 0 where there are none; a cover does not count.
int mainPictures(AVFormatContext& input) {
  const int best = av_find_best_stream(&input, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
  const bool isCover =
      best >= 0 && (input.streams[best]->disposition & AV_DISPOSITION_ATTACHED_PIC) != 0;
  return isCover ? -1 : best;
}

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

class Player {
 public:
  explicit Player(const Typed& typed) : typed_(typed) {
    if (!(typed.rate >= kSlowest && typed.rate <= kFastest))
      throw wrongUsage(fmt::format("--rate: '{}' is not a factor from {} to {}", typed.rate,
                                   kSlowest, kFastest));
    if (!(typed.volume >= 0 && typed.volume <= kLoudestTyped))
      throw wrongUsage(
          fmt::format("--volume: '{}' is not a factor from 0 to {}", typed.volume, kLoudestTyped));
    if (!typed.start.empty()) start_ = parseTime("--start", typed.start);
    volume_ = typed.volume;
  }

  int run() {
    open();
    {
      Terminal terminal(!typed_.noInput);
      requirePictureTerminal(terminal);
      play(terminal);
      movie_.pause();
      terminal.leave();
    }
    if (interrupted()) return kInterrupted;
    return status();
  }

 private:
  void open() {
    source_ = openInput(typed_.input, typed_.title);
    const AVFormatContext& input = *source_->formatContext();
    IndexSet streams = chosenAudios(typed_.audioTracks, *source_);
    IndexSet tracks;
    for (uint32_t track = 0; track < streams.size(); ++track) tracks.insert(track);
    const int best = mainPictures(*source_->formatContext());
    // Without sound it is the pictures that say how long the movie is.
    if (best >= 0 && (typed_.picture || streams.empty()))
      streams.insert(static_cast<uint32_t>(best));
    if (typed_.picture && best < 0)
      throw Failure{kFailed, fmt::format("'{}' has no pictures", typed_.input)};
    if (best >= 0) pictures_ = input.streams[best];
    if (!streams.empty()) movie_.openMedias(source_->createMediasWithStreams(streams));
    movie_.setSelectAudioStreams(tracks);
    if (!movie_.hasAudio() && !movie_.hasVideo())
      throw Failure{kFailed, fmt::format("cannot play '{}': none of its streams can be decoded",
                                         typed_.input)};
    if (movie_.duration() > 0 && movie_.duration() < LMFFMedia::kUnknownDuration)
      duration_ = movie_.duration();
    if (duration_ && start_ > 0 && start_ >= *duration_)
      throw wrongUsage(fmt::format("the start lies behind the end of '{}'", typed_.input));
    provider_->movieMediaEffectImage =
        [this](LMFFMovie&, const std::shared_ptr<const Image>& image) { draw(image); };
  }

  void requirePictureTerminal(const Terminal& terminal) const {
    if (!typed_.picture) return;
    if (!terminal.isStandardOutput() || !showsColors())
      throw wrongUsage("--picture needs standard output to be a terminal that shows colours");
    if (!showsBlocks())
      throw wrongUsage("--picture needs a locale of UTF-8, such as LC_ALL=C.UTF-8");
  }

  void play(Terminal& terminal) {
    movie_.setRate(static_cast<float>(typed_.rate));
    movie_.setPlayVolume(volume_);
    if (start_ > 0) movie_.seek(start_);
    movie_.play();
    if (movie_.audioOutputGraph()->graph().lacksDevice() && movie_.hasAudio())
      say("there is no audio device: playing without being heard");
    while (!wantsQuit_ && !interrupted() && !isAtEnd()) {
      lookOn(terminal);
      show(terminal);
      for (const PlayKey key : keys_.read(terminal.read(typed_.picture ? kPictureWait : kWait)))
        obey(key, terminal);
    }
    show(terminal);
  }

  int64_t time() const {
    const int64_t now = std::max<int64_t>(movie_.currentTime(), 0);
    return duration_ ? std::min(now, *duration_) : now;
  }

  // Keys.

  void obey(PlayKey key, Terminal& terminal) {
    switch (key) {
      case PlayKey::kPause:
        return movie_.isPlay() ? movie_.pause() : movie_.play();
      case PlayKey::kBack:
        return seekBy(-5 * kSecond);
      case PlayKey::kForward:
        return seekBy(5 * kSecond);
      case PlayKey::kFarBack:
        return seekBy(-60 * kSecond);
      case PlayKey::kFarForward:
        return seekBy(60 * kSecond);
      case PlayKey::kToStart:
        return seekBy(-time());
      case PlayKey::kSlower:
        return setRate(movie_.rate() / kRateStep);
      case PlayKey::kFaster:
        return setRate(movie_.rate() * kRateStep);
      case PlayKey::kHalfAsFast:
        return setRate(movie_.rate() / 2.0);
      case PlayKey::kTwiceAsFast:
        return setRate(movie_.rate() * 2.0);
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

  void seekBy(int64_t step) {
    const int64_t target = std::max<int64_t>(time() + step, 0);
    movie_.seek(duration_ ? std::min(target, *duration_) : target);
    const std::lock_guard guard(lock_);
    ++seeks_;
    inputEnd_.reset();
  }

  /// A rate that is within half a step of 1 is meant to be 1.
  void setRate(double rate) {
    rate = std::clamp(rate, kSlowest, kFastest);
    movie_.setRate(static_cast<float>(std::abs(rate - 1) < 0.02 ? 1 : rate));
  }

  void setVolume(double volume) {
    volume_ = std::max(volume, 0.0);
    movie_.setPlayVolume(isMuted_ ? 0 : volume_);
  }

  // The end.

  bool isAtEnd() {
    const int64_t now = movie_.currentTime();
    if (duration_ && now >= *duration_) return true;
    const std::lock_guard guard(lock_);
    return inputEnd_ && now >= *inputEnd_;
  }

  /// An input may end before the time that it states, or state none: what is left then is what has
  /// been read and not been heard. On the decode queue.
  void findInputEnd(int seeks) {
    if (!movie_.isPlay()) return;
    const auto medias = movie_.medias();
    const bool hasEnded = std::ranges::all_of(medias, [](const auto& media) {
      const auto sounds = media->audios();
      return media->isAtEnd() && std::ranges::all_of(sounds, [](const auto& stream) {
               return stream->outputSamples() == 0;
             });
    });
    if (!hasEnded) return;
    const double unheard = movie_.audioOutputGraph()->unheardFrames();
    const double rate = movie_.defaultOutputFormat().sample_rate;
    const int64_t end = movie_.currentTime() + static_cast<int64_t>(unheard / rate * kSecond);
    const std::lock_guard guard(lock_);
    if (!inputEnd_ && seeks == seeks_) inputEnd_ = end;
  }

  int status() {
    movie_.flushOperation();
    const Error error = source_->lastError();
    const auto stated = soundEnd();
    const bool isShort =
        inputEnd_ && stated && !wantsQuit_ && *stated - *inputEnd_ > kMissingTolerance;
    if (!error && !isShort) return kDone;
    say(fmt::format("'{}' ended early, at {:.2f}{} s{}", typed_.input,
                    lm_ff_time_to_double(inputEnd_.value_or(time())),
                    duration_ ? fmt::format(" of {:.2f}", lm_ff_time_to_double(*duration_)) : "",
                    error ? ": " + error.message : ""));
    return kDoneInPart;
  }

  /// Where the sound says that it ends. Where it says nothing, beside pictures that may be longer,
  /// nobody knows.
  std::optional<int64_t> soundEnd() const {
    int64_t end = 0;
    for (const auto& media : movie_.medias())
      for (const auto& stream : media->audios())
        end = std::max(end, statedLength(*stream->stream()));
    if (end == 0 && !(pictures_ && movie_.hasAudio())) return duration_;
    return end > 0 ? std::optional(std::min(end, duration_.value_or(end))) : std::nullopt;
  }

  // What is shown.

  void show(Terminal& terminal) {
    if (!terminal.isShown()) return;
    auto& graph = movie_.audioOutputGraph()->graph();
    const TerminalSize size = terminal.size();
    const PlayState state{
        .time = lm_ff_time_to_double(time()),
        .duration = duration_ ? std::optional(lm_ff_time_to_double(*duration_)) : std::nullopt,
        .rate = movie_.rate(),
        .volume = volume_,
        .isPaused = !movie_.isPlay(),
        .isMuted = isMuted_,
        .peaks = {graph.takePeak(0), graph.takePeak(1)}};
    std::string text = playLine(state, size.columns);
    {
      const std::lock_guard guard(lock_);
      if (pictureTerminal_ == size) text += picture_;
    }
    terminal.show(text);
  }

  /// Has the decode queue find out what is new. Nobody waits for it: a picture may take long.
  void lookOn(const Terminal& terminal) {
    if (isLooking_.exchange(true)) return;
    const bool wantsPicture = typed_.picture && terminal.isShown();
    movie_.decodeImage(
        [this, wantsPicture, size = terminal.size(), seeks = seeks_] {
          if (wantsPicture) decodePicture(size);
          findInputEnd(seeks);
          isLooking_ = false;
        },
        false);
  }

  /// On the decode queue.
  void decodePicture(TerminalSize terminal) {
    const Look look(LookSettings{}, *pictures_);
    const Size own = look.size();
    const Size size = terminalPictureSize(look.pixelAspect() * own.width / own.height, terminal);
    if (size.width < 1 || size.height < 1) return;
    if (!(size == pictureSize_)) look.apply(movie_, size);
    pictureSize_ = size;
    movie_.decodeImageAtTime(time(), provider_);
    const std::lock_guard guard(lock_);
    pictureTerminal_ = terminal;
  }

  void draw(const std::shared_ptr<const Image>& image) {
    if (!image) return;
    const auto bitmap = context_.bitmapImage(image, {{0, 0}, pictureSize_});
    if (!bitmap) return;
    std::string picture = terminalPicture(*bitmap);
    const std::lock_guard guard(lock_);
    picture_ = std::move(picture);
  }

  const Typed& typed_;
  int64_t start_ = 0;
  double volume_ = 1;
  bool isMuted_ = false;
  bool wantsQuit_ = false;
  std::shared_ptr<LMMediaSource> source_;
  const AVStream* pictures_ = nullptr;
  std::optional<int64_t> duration_;
  int seeks_ = 0;  // how often it was sought, by keys
  KeyReader keys_;

  // What the decode queue finds out.
  std::atomic<bool> isLooking_{false};
  std::mutex lock_;                  // of the next three, and of changing `seeks_`
  std::optional<int64_t> inputEnd_;  // where the input turned out to end
  std::string picture_;
  TerminalSize pictureTerminal_;  // which it was made for

  // Of the decode queue alone.
  ImageContext context_;
  Size pictureSize_;
  std::shared_ptr<LMFFMovieImageProvider> provider_ = std::make_shared<LMFFMovieImageProvider>();
  LMFFMovie movie_;
};

}  // namespace

void addPlayCommand(CLI::App& app, Run& run) {
  const auto typed = std::make_shared<Typed>();
  CLI::App* verb = app.add_subcommand("play", "Play a movie's sound");
  verb->add_option("input", typed->input, "the movie to play")->required()->type_name("FILE");
  verb->add_option("--title", typed->title, "of a disc: a number (see 'kestrel dvd') or 'main'")
      ->type_name("N");
  verb->add_option("--start", typed->start, "where to begin (default: 0)")->type_name("TIME");
  verb->add_option("--rate", typed->rate,
                   "factor on the tempo, from 0.25 to 4; the pitch stays (default: 1)")
      ->type_name("X");
  verb->add_option("--volume", typed->volume, "factor on the loudness, from 0 to 1000 (default: 1)")
      ->type_name("X");
  verb->add_option("--audio-tracks", typed->audioTracks,
                   "tracks to mix: numbers from 0, 'all', or a language code")
      ->type_name("0,2|all|LANG");
  verb->add_flag("--picture", typed->picture, "show the pictures, too, in characters");
  verb->add_flag("--no-input", typed->noInput, "read no keys");
  verb->footer(
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
  verb->callback([&run, typed] { run = [typed] { return Player(*typed).run(); }; });
}
