#include <kestrel/convert/Conversion.h>

#include <kestrel/LMDVDTitleSource.h>
#include <kestrel/LMFFMedia.h>
#include <kestrel/LMFFMediaStream.h>
#include <kestrel/LMFFMovie.h>
#include <kestrel/LMFFMovieFileOutput.h>
#include <kestrel/LMMediaSource.h>

#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include <kestrel/convert/Disc.h>
#include <kestrel/convert/Failure.h>
#include <kestrel/convert/MediaInfo.h>
#include <kestrel/convert/OutputFile.h>
#include "convert/feed/JobQueue.h"
#include "convert/feed/PictureMaker.h"
#include "convert/feed/Readers.h"
#include "convert/feed/Tracks.h"
#include "convert/pictures/AutoCrop.h"
#include "convert/plan/ConversionPlanner.h"
#include "convert/plan/PlanRules.h"
#include "convert/plan/SettingsRules.h"
#include "convert/probe/Input.h"
#include "convert/probe/InputEnd.h"
#include "convert/run/LeftOut.h"
#include "convert/run/PlannedOutput.h"

extern "C" {
#include <libavformat/avformat.h>
}

namespace kestrel {

namespace {

using Kind = StreamInfo::Kind;

constexpr int64_t kSecond = 1000000;

/// Pictures and blocks of sound on their way to the encoder: enough that neither side waits for the
/// other, few enough that they cost no memory to speak of.
constexpr size_t kMostJobs = 2;

/// No encoder's delay is longer; microseconds.
constexpr int64_t kLongestDelay = kSecond;

/// A seek may land a few pictures late: it aims this much earlier and what is too early is dropped.
constexpr int64_t kPreroll = kSecond / 2;

/// A span as seconds; none where it is not known how long it is.
std::optional<double> knownLength(int64_t span) {
  return span > 0 && span < LMFFMedia::kUnknownDuration ? std::optional(lm_ff_time_to_double(span))
                                                        : std::nullopt;
}

/// Says what of a disc was lost where it matters: another title may have been meant, for the disc's
/// main one, or whatever had the number, may be among it.
void judgeDisc(Report& report, const ConversionSettings& settings, const LMMediaSource& source) {
  const auto* title = dynamic_cast<const DVDTitleSource*>(&source);
  if (!title) return;
  const std::string damage = damageOf(*title->dvd());
  const bool matters = settings.title == kMainTitle || !title->dvd()->hasTitleTable();
  if (damage.empty() || !matters) return;
  report.find(fmt::format("'{}' cannot be read whole: {}", settings.input, damage));
}

}  // namespace

class Conversion::Work {
 public:
  explicit Work(ConversionSettings settings) : settings_(std::move(settings)) {
    require(settings_);
  }

  ConversionPlan& plan(const Events& events) {
    if (source_) return plan_;
    const auto source = openInput(settings_.input, settings_.title, events.interrupt);
    const auto picture =
        settings_.look.autoCrop ? findPicture(events.interrupt) : std::optional<Area>();
    plan_ = planConversion(settings_, *source, picture);
    info_ = mediaInfoOf(*source);
    source_ = source;
    return plan_;
  }

  Report run(const Events& events) {
    events_ = events;
    try {
      return convert();
    } catch (const Failure& failure) {
      if (failure.kind() != Failure::Kind::kInterrupted) throw;
      return Report::interrupted();
    }
  }

 private:
  Report convert() {
    if (hasRun_) throw Failure::settings("a conversion runs once: make another one", "run");
    plan(events_);
    requirePlan(plan_, *source_, settings_.output);
    source_->setInterrupt(events_.interrupt);
    OutputFile target(settings_.output, settings_.replaces, settings_.input);
    hasRun_ = true;
    openMovie();
    openOutput(target.path());
    pump();
    output_.stopOutput();
    if (events_.isInterrupted()) return Report::interrupted();
    requireOutput(output_, settings_.output);
    target.commit();
    return report();
  }

  /// What lies between the black bars; nothing where there are none.
  std::optional<Area> findPicture(const Interrupt& interrupt) const {
    LMFFMovie movie;
    movie.openMedias(openInput(settings_.input, settings_.title, interrupt)->createMedias());
    return withoutBars(movie);
  }

  void openMovie() {
    movie_.setExportMovie(true);
    movie_.openMedias(openReaders(source_, plan_));
    for (PlannedStream& stream : plan_.streams) leaveOutUnread(stream);
    if (plan_.kept(Kind::kVideo).empty() && plan_.kept(Kind::kAudio).empty())
      throw Failure::input(
          settings_.input,
          fmt::format("cannot convert '{}': none of its streams can be decoded", settings_.input));
    for (const auto& media : movie_.videos())
      media->videoStream()->setDeinterlacing(plan_.deinterlacing);
    applyLook();
    if (movie_.duration() > 0 && plan_.start >= movie_.duration())
      throw Failure::settings(fmt::format("the start lies behind the end of '{}'", settings_.input),
                              "start");
  }

  /// Leaves out what no decoder opens.
  void leaveOutUnread(PlannedStream& stream) const {
    const bool isRead = stream.kind == Kind::kVideo || stream.kind == Kind::kAudio;
    if (!stream.isKept() || stream.isCover || !isRead) return;
    std::erase_if(stream.sources,
                  [&](uint32_t index) { return !readerOf(movie_.medias(), index).stream; });
    if (!stream.sources.empty()) return;
    stream.action = StreamAction::kNone;
    stream.reason = "it cannot be decoded";
  }

  bool encodesPictures() const {
    return plan_.pictures() && plan_.pictures()->action == StreamAction::kEncode;
  }

  void applyLook() {
    if (!encodesPictures()) return;
    const VideoInfo& video = info_.streams[plan_.pictures()->sources.front()].video;
    const Look look(plan_.look, video, plan_.picture);
    isPlain_ = look.isPlain();
    if (isPlain_) return;
    look.apply(movie_,
               {static_cast<double>(plan_.format.width), static_cast<double>(plan_.format.height)});
  }

  void openOutput(const std::string& path) {
    setUpOutput(output_, plan_, path, events_.interrupt);
    if (plan_.keepsMetadata) {
      output_.setMetadata(lastingTags(info_.tags));
      output_.setChapters(chaptersOf(info_, plan_.start, plan_.end.value_or(INT64_MAX)));
    }
    // From a later start on, packets that bring a delay are sound that was heard before.
    if (plan_.start == 0) output_.setCopiedSoundBegin(-kLongestDelay);
    const AVFormatContext& input = *source_->formatContext();
    for (const PlannedStream& stream : plan_.streams)
      if (stream.isKept()) {
        outputs_.push_back({&stream, openPlannedStream(output_, stream, input)});
        if (!outputs_.back().stream) requireOutput(output_, settings_.output);
      }
    output_.startOutput();
    requireOutput(output_, settings_.output);
  }

  /// A stream of the plan, and where it is written.
  struct Output {
    const PlannedStream* planned;
    AVStream* stream;
  };

  std::unique_ptr<Track> makeTrack(const Output& output, const Span& span, int64_t preroll,
                                   const Track* leader) {
    const PlannedStream& planned = *output.planned;
    if (planned.kind == Kind::kVideo && planned.action == StreamAction::kEncode) {
      auto maker =
          isPlain_ ? nullptr : std::make_unique<PictureMaker>(movie_, *output_.videoConverter());
      const bool drawsTexts = plan_.look.subtitleTrack || !plan_.look.subtitles.empty();
      if (plan_.keepsTimes)
        return std::make_unique<TimedVideoTrack>(movie_, span, plan_.rate(), drawsTexts,
                                                 std::move(maker));
      return std::make_unique<EncodedVideoTrack>(movie_, span, plan_.rate(), std::move(maker));
    }
    if (planned.kind == Kind::kAudio && planned.action == StreamAction::kEncode) {
      std::vector<AudioFeed::Input> inputs;
      for (const uint32_t index : planned.sources) {
        const ReadStream read = readerOf(movie_.medias(), index);
        inputs.push_back({read.media, read.stream});
      }
      return std::make_unique<EncodedAudioTrack>(AudioFeed(inputs), output.stream, span, preroll,
                                                 levelOf(planned), leader);
    }
    const ReadStream read = readerOf(movie_.medias(), planned.sources.front());
    return std::make_unique<CopiedTrack>(read.media, read.stream, output.stream, span, leader);
  }

  /// Sound that is mixed, from several tracks or into fewer channels, or amplified may rise above
  /// full scale.
  EncodedAudioTrack::Level levelOf(const PlannedStream& planned) const {
    const auto& sound = planned.sound;
    const int channels = lm_get_channel_layout_nb_channels(sound.channelLayout);
    const bool isMixed = std::ranges::any_of(planned.sources, [&](uint32_t index) {
      return info_.streams[index].audio.channels > channels;
    });
    return {sound.volume, isMixed || planned.sources.size() > 1 || sound.volume > 1};
  }

  /// The pictures' track comes first. In each media one track reads: that of the pictures or, where
  /// there are none, of the first sound that is encoded, else of the first stream. Sound that is
  /// encoded reads for itself but where it would read pictures.
  std::vector<std::unique_ptr<Track>> makeTracks(int64_t preroll) {
    const Span span{plan_.start, plan_.end};
    std::vector<Output> wanted;
    for (const Output& output : outputs_)
      if (isTrack(*output.planned)) wanted.push_back(output);
    std::ranges::stable_sort(wanted, {}, [](const Output& output) {
      const PlannedStream& planned = *output.planned;
      if (planned.kind == Kind::kVideo) return 0;
      if (planned.kind == Kind::kAudio) return planned.action == StreamAction::kEncode ? 1 : 2;
      return 3;
    });
    std::vector<std::unique_ptr<Track>> tracks;
    std::map<const LMFFMedia*, const Track*> leaders;
    for (const Output& output : wanted) {
      const auto media = readerOf(movie_.medias(), output.planned->sources.front()).media;
      const auto leader = leaders.find(media.get());
      const bool isSound =
          output.planned->kind == Kind::kAudio && output.planned->action == StreamAction::kEncode;
      const bool follows = leader != leaders.end() && (!isSound || media->hasVideo());
      tracks.push_back(makeTrack(output, span, preroll, follows ? leader->second : nullptr));
      leaders.try_emplace(media.get(), tracks.back().get());
    }
    return tracks;
  }

  static bool isTrack(const PlannedStream& stream) {
    return !stream.isCover && stream.kind != Kind::kAttachment;
  }

  /// Reads and decodes on the movie's queue, in one piece of work there, so that no picture has to
  /// change threads on its way; encodes and writes on a thread of its own.
  void pump() {
    const int64_t preroll = std::min(kPreroll, plan_.start);
    movie_.seek(plan_.start - preroll);
    movie_.flushOperation();
    std::exception_ptr failure;
    movie_.decodeImage(
        [&] {
          try {
            pumpTracks(makeTracks(preroll));
          } catch (...) {
            failure = std::current_exception();
          }
        },
        true);
    if (failure) std::rethrow_exception(failure);
  }

  void pumpTracks(const std::vector<std::unique_ptr<Track>>& tracks) {
    const int64_t end = std::min(plan_.end.value_or(INT64_MAX), movie_.duration());
    Progress progress{.duration = knownLength(end - plan_.start)};
    JobQueue encoding(kMostJobs);
    const bool isEncoding = this->isEncoding();
    while (!events_.isInterrupted()) {
      const auto behind =
          std::ranges::min_element(tracks, {}, [](const auto& track) { return track->time(); });
      const int64_t time = (*behind)->time();
      if (time == Track::kEnded) break;
      progress.time = lm_ff_time_to_double(time);
      if (events_.progress) events_.progress(progress);
      Track::Job job = (*behind)->step();
      if (!job) continue;
      if (plan_.pictures() && behind == tracks.begin()) ++progress.pictures;
      // A packet is written where it was read, while it is still in that core's cache.
      if (!isEncoding) {
        carryOut(job);
        continue;
      }
      encoding.push([this, job = std::move(job)] { carryOut(job); });
    }
    if (events_.isInterrupted()) return;
    for (const auto& track : tracks) inputEnd_ = std::max(inputEnd_, track->end());
    for (const auto& track : tracks)
      if (Track::Job rest = track->finish())
        encoding.push([this, rest = std::move(rest)] { carryOut(rest); });
    encoding.finish();
    if (inputEnd_ == 0)
      throw Failure::input(settings_.input,
                           fmt::format("nothing could be decoded from '{}'", settings_.input));
  }

  bool isEncoding() const {
    return std::ranges::any_of(plan_.streams, [](const PlannedStream& stream) {
      return stream.action == StreamAction::kEncode && stream.kind != Kind::kSubtitle;
    });
  }

  void carryOut(const Track::Job& job) {
    job(output_);
    requireOutput(output_, settings_.output);
  }

  /// Whether the result is all that the input promised, and what is missing.
  Report report() const {
    InputEnd end = faultsOf(movie_);
    end.reached = plan_.start + inputEnd_;
    Report report;
    report.leftOut = leftOutBy(plan_, info_, settings_.input, *source_->formatContext());
    judgeDisc(report, settings_, *source_);
    const IndexSet streams = streamsOf(plan_);
    const AVFormatContext& input = *source_->formatContext();
    // Behind the end of the streams that were read, nothing is missed.
    std::optional<int64_t> wanted = plan_.end;
    if (wanted) wanted = std::min(*wanted, promisedLength(input, streams).time);
    judgeInput(report, settings_.input, {*source_, input, streams, wanted}, end);
    judgePackets(report, fmt::format("'{}'", settings_.input), output_.refusedPackets());
    tellOfEncoded(report, events_, output_.picturesEncodedToHide(), settings_.input);
    return report;
  }

  ConversionSettings settings_;
  std::shared_ptr<LMMediaSource> source_;
  MediaInfo info_;  // of the source
  ConversionPlan plan_;
  bool hasRun_ = false;
  Events events_;
  bool isPlain_ = true;  // the pictures go to the encoder as they were decoded
  LMFFMovie movie_;
  LMFFMovieFileOutput output_;
  std::vector<Output> outputs_;
  int64_t inputEnd_ = 0;  // how much of the input there was, microseconds after the start
};

Conversion::Conversion(ConversionSettings settings)
    : work_(std::make_unique<Work>(std::move(settings))) {}

Conversion::~Conversion() = default;

ConversionPlan& Conversion::plan(const Events& events) { return work_->plan(events); }

Report Conversion::run(const Events& events) { return work_->run(events); }

}  // namespace kestrel
