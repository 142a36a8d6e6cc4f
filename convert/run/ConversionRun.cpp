#include "convert/run/ConversionRun.h"

#include <kestrel/LMFFAudioResample.h>
#include <kestrel/LMFFMedia.h>
#include <kestrel/LMFFMediaStream.h>
#include <kestrel/LMFFMovie.h>
#include <kestrel/LMFFMovieFileOutput.h>
#include <kestrel/LMMediaSource.h>

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <exception>
#include <map>
#include <optional>
#include <utility>
#include <vector>

#include <kestrel/convert/Failure.h>
#include "convert/feed/JobQueue.h"
#include "convert/feed/PictureShaper.h"
#include "convert/feed/Readers.h"
#include "convert/feed/Tracks.h"
#include "convert/look/Look.h"
#include "convert/plan/ConstantRate.h"
#include "convert/plan/Fragments.h"
#include "convert/probe/Streams.h"
#include "convert/run/MadeTrack.h"
#include "convert/run/PlannedOutput.h"
#include "convert/run/RunFiles.h"
#include "convert/run/RunParts.h"
#include "support/copy/StreamCopier.h"

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

/// A seek may land a few pictures late: it aims this much earlier and what is too early is dropped.
constexpr int64_t kPreroll = kSecond / 2;

/// A span as seconds; none where it is not known how long it is.
std::optional<double> knownLength(int64_t span) {
  return span > 0 && span < LMFFMedia::kUnknownDuration ? std::optional(lm_ff_time_to_double(span))
                                                        : std::nullopt;
}

/// A track, and the files that its pieces go to.
struct FedTrack {
  std::unique_ptr<Track> track;
  const PlannedStream* planned;
  std::vector<LMFFMovieFileOutput*> files;
};

}  // namespace

class ConversionRun::Work {
 public:
  Work(const ConversionSettings& settings, std::shared_ptr<LMMediaSource> source,
       const MediaInfo& info, ConversionPlan plan, Part part, const Events& events,
       RunDivision division)
      : settings_(settings),
        source_(std::move(source)),
        info_(info),
        plan_(partOf(std::move(plan), part)),
        part_(part),
        events_(events),
        division_(std::move(division)) {
    if (division_.start) plan_.start = *division_.start;
  }

  RunFiles& files() { return files_; }
  const std::vector<Rendition>& renditions() const { return renditions_; }
  const ConversionPlan& plan() const { return plan_; }
  int64_t length() const { return inputEnd_; }

  std::vector<LoudnessChange> loudness() const {
    std::vector<LoudnessChange> changes;
    uint32_t track = 0;
    for (const PlannedStream* stream : plan_.kept(Kind::kAudio)) {
      const uint32_t number = track++;
      const auto heard = loudness_.find(stream);
      if (heard == loudness_.end()) continue;
      changes.push_back({.stream = number,
                         .gain = 20 * std::log10(stream->sound.volume),
                         .after = heard->second.loudness,
                         .isLimited = heard->second.isLimited});
    }
    return changes;
  }

  void write(const std::string& path) {
    openMovie();
    openOutput(path);
    pump();
    files_.stop();
    if (events_.isInterrupted()) return;
    files_.require(settings_.output);
    if (plan_.segment) renditions_ = files_.writePlaylists(settings_.output);
  }

  InputEnd inputEnd() const {
    InputEnd end = faultsOf(movie_);
    if (division_.faults) end.add(division_.faults());
    end.reached = plan_.start + inputEnd_;
    end.refused += refused_;
    return end;
  }

 private:
  void openMovie() {
    movie_.setExportMovie(true);
    const ConversionPlan read = readPlan();
    if (std::ranges::any_of(read.streams, isRead)) movie_.openMedias(openReaders(source_, read));
    for (PlannedStream& stream : plan_.streams)
      if (!isMade(stream)) leaveOutUnread(stream);
    if (plan_.kept(Kind::kVideo).empty() && plan_.kept(Kind::kAudio).empty())
      throw Failure::input(
          settings_.input,
          fmt::format("cannot convert '{}': none of its streams can be decoded", settings_.input));
    for (const auto& media : movie_.videos()) media->videoStream()->setTreatment(plan_.treatment);
    applyLook();
    if (movie_.duration() > 0 && plan_.start >= movie_.duration())
      throw Failure::settings(fmt::format("the start lies behind the end of '{}'", settings_.input),
                              "start");
  }

  /// Whether a stream's packets have been made before.
  bool isMade(const PlannedStream& stream) const {
    return division_.made && (isEncodedPictures(stream) || isEncodedSound(stream));
  }

  /// The plan of what is read of the input.
  ConversionPlan readPlan() const {
    ConversionPlan read = plan_;
    for (PlannedStream& stream : read.streams)
      if (isMade(stream)) stream.action = StreamAction::kNone;
    return read;
  }

  static bool isRead(const PlannedStream& stream) { return stream.isKept() && isTrack(stream); }

  /// Leaves out what no decoder opens.
  void leaveOutUnread(PlannedStream& stream) const {
    const bool isRead = stream.kind == Kind::kVideo || stream.kind == Kind::kAudio;
    if (!stream.isKept() || stream.isCover || !isRead) return;
    std::vector<uint32_t> read = stream.sources;
    std::erase_if(read, [&](uint32_t index) { return !readerOf(movie_.medias(), index).stream; });
    if (!read.empty()) {
      stream.sources = std::move(read);
      return;
    }
    stream.action = StreamAction::kNone;
    stream.reason = "it cannot be decoded";
  }

  bool encodesPictures() const {
    return plan_.pictures() && plan_.pictures()->action == StreamAction::kEncode &&
           !isMade(*plan_.pictures());
  }

  void applyLook() {
    if (!encodesPictures()) return;
    VideoInfo video = info_.streams[plan_.pictures()->sources.front()].video;
    video.orientation = plan_.orientation;
    look_ = Look(plan_.look, video, plan_.picture);
    if (!look_.isDrawn()) return;
    look_.apply(movie_, {static_cast<double>(plan_.format.width),
                         static_cast<double>(plan_.format.height)});
  }

  void openOutput(const std::string& path) {
    files_.open(
        {plan_, info_, *source_->formatContext(), settings_.output, events_.interrupt,
         [this](const PlannedStream& stream) { return isWritten(stream); },
         [this](const PlannedStream& stream) { return samplesOf(stream); },
         [this](const PlannedStream& stream) { return makePackets(stream); }, division_.take},
        path);
    if (!division_.begin) return;
    std::vector<RunDivision::Stream> streams;
    for (const RunFiles::Output& output : files_.outputs())
      streams.push_back({placeOf(*output.planned), output.stream});
    division_.begin(streams);
  }

  size_t placeOf(const PlannedStream& stream) const {
    return static_cast<size_t>(&stream - plan_.streams.data());
  }

  /// Has packets that were made before ready for their track; null for other streams.
  const AVStream* makePackets(const PlannedStream& stream) {
    if (!isMade(stream)) return nullptr;
    auto& packets = made_[&stream];
    packets = division_.made(placeOf(stream));
    return &packets->stream();
  }

  /// The samples in which a stream of sound comes from its reader.
  int32_t samplesOf(const PlannedStream& stream) const {
    const ReadStream read = readerOf(movie_.medias(), stream.sources.front());
    const auto resample = read.stream ? read.stream->resample() : nullptr;
    return resample ? resample->outFormat().sample_fmt : lm_get_default_sample_fmt();
  }

  bool isWritten(const PlannedStream& stream) const {
    return (part_ != Part::kFirstPass && part_ != Part::kPictures) || isEncodedPictures(stream);
  }

  PictureShaper makeShaper() { return shaperOf(look_, movie_, files_.first(), plan_.pixelFormat); }

  std::unique_ptr<Track> makeTrack(const RunFiles::Output& output, const Span& span,
                                   int64_t preroll, const Track* leader) {
    const PlannedStream& planned = *output.planned;
    if (const auto made = made_.find(&planned); made != made_.end())
      return std::make_unique<MadeTrack>(std::move(made->second), output.stream);
    if (planned.kind == Kind::kVideo && planned.action == StreamAction::kEncode) {
      const bool drawsTexts = plan_.look.subtitleTrack || !plan_.look.subtitles.empty();
      if (plan_.keepsTimes)
        return std::make_unique<TimedVideoTrack>(movie_, span, plan_.rate(), drawsTexts,
                                                 makeShaper(), division_.stretch);
      if (plan_.keepsPictures)
        return std::make_unique<PacedVideoTrack>(movie_, span, plan_.rate(), makeShaper());
      return std::make_unique<EncodedVideoTrack>(movie_, span, plan_.rate(), makeShaper(),
                                                 division_.stretch);
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
    const AVStream& input = *source_->formatContext()->streams[planned.sources.front()];
    const bool isBroadcast = (source_->formatContext()->iformat->flags & AVFMT_TS_DISCONT) != 0;
    auto check = planned.isChecked ? std::make_unique<SoundCheck>(input, isBroadcast) : nullptr;
    return std::make_unique<CopiedTrack>(read.media, read.stream, output.stream, span, leader,
                                         hidesFirst(), std::move(check));
  }

  /// Whether the output can hide pictures before its start. In fragments, few players look for what
  /// says so.
  bool hidesFirst() const {
    const AVOutputFormat& container = *av_guess_format(plan_.formatName.c_str(), nullptr, nullptr);
    return hidesFirstPictures(container) && !plan_.segment && !isFragmented(settings_, container);
  }

  /// Sound that is mixed, from several tracks or into fewer channels, or amplified may rise above
  /// full scale.
  EncodedAudioTrack::Level levelOf(const PlannedStream& planned) {
    const auto& sound = planned.sound;
    const int channels = lm_get_channel_layout_nb_channels(sound.channelLayout);
    const bool isMixed = std::ranges::any_of(planned.sources, [&](uint32_t index) {
      return info_.streams[index].audio.channels > channels;
    });
    EncodedAudioTrack::Level level{sound.volume,
                                   isMixed || planned.sources.size() > 1 || sound.volume > 1};
    if (!sound.loudness) return level;
    level.mayRise = true;
    level.told = &loudness_[&planned];
    return level;
  }

  /// The pictures' track comes first. In each media one track reads: that of the pictures or, where
  /// there are none, of the first sound that is encoded, else of the first stream. Sound that is
  /// encoded reads for itself but where it would read pictures.
  std::vector<FedTrack> makeTracks(int64_t preroll) {
    const Span span{plan_.start, plan_.end};
    std::vector<RunFiles::Output> wanted;
    for (const RunFiles::Output& output : files_.outputs())
      if (isTrack(*output.planned)) wanted.push_back(output);
    std::ranges::stable_sort(wanted, {}, [](const RunFiles::Output& output) {
      const PlannedStream& planned = *output.planned;
      if (planned.kind == Kind::kVideo) return 0;
      if (planned.kind == Kind::kAudio) return planned.action == StreamAction::kEncode ? 1 : 2;
      return 3;
    });
    std::vector<FedTrack> tracks;
    std::map<const LMFFMedia*, const Track*> leaders;
    for (const RunFiles::Output& output : wanted) {
      if (made_.contains(output.planned)) {
        tracks.push_back({makeTrack(output, span, preroll, nullptr), output.planned, output.files});
        continue;
      }
      const auto media = readerOf(movie_.medias(), output.planned->sources.front()).media;
      const auto leader = leaders.find(media.get());
      const bool isSound =
          output.planned->kind == Kind::kAudio && output.planned->action == StreamAction::kEncode;
      const bool follows = leader != leaders.end() && (!isSound || media->hasVideo());
      tracks.push_back({makeTrack(output, span, preroll, follows ? leader->second : nullptr),
                        output.planned, output.files});
      leaders.try_emplace(media.get(), tracks.back().track.get());
    }
    return tracks;
  }

  static bool isTrack(const PlannedStream& stream) {
    return !stream.isCover && stream.kind != Kind::kAttachment;
  }

  /// Where pictures alone are wanted from where they begin: a container may tell a time behind the
  /// first of them.
  void beginWithFirstPicture() {
    const bool isWanted =
        encodesPictures() && !division_.start && plan_.kept(Kind::kAudio).empty() &&
        plan_.start > 0 &&
        plan_.start == beginOf(info_.streams[plan_.pictures()->sources.front()], info_);
    if (!isWanted) return;
    movie_.updateCurrentMedias();
    const auto media = movie_.currentVideoMedia();
    auto first = media ? media->currentPicture() : LMFFMedia::Picture{};
    if (media && !first) first = media->nextPicture();
    if (first)
      plan_.start = std::clamp<int64_t>(first.start + media->movie_position(), 0, plan_.start);
  }

  /// Pictures that are copied begin with one that needs no other; a span without such a one has
  /// none.
  void requireKeyPicture(const FedTrack& fed) const {
    const bool isCopy = fed.planned->kind == Kind::kVideo && !fed.planned->isCover &&
                        fed.planned->action == StreamAction::kCopy;
    if (!isCopy || fed.track->hasBrought() || plan_.start <= 0) return;
    throw Failure::input(
        settings_.input,
        fmt::format("'{}' has no key picture within the span, with which copied pictures could "
                    "begin: encode them, or start earlier",
                    settings_.input));
  }

  /// Reads and decodes on the movie's queue, in one piece of work there, so that no picture has to
  /// change threads on its way; encodes and writes on a thread of its own.
  void pump() {
    const PictureStretch stretch = division_.stretch.value_or(PictureStretch{.from = plan_.start});
    const int64_t preroll = std::min(kPreroll + stretch.context, stretch.from);
    for (const auto& media : movie_.videos())
      media->videoStream()->setKeepsGroups(plan_.start > 0 && hidesFirst());
    movie_.seek(stretch.from - preroll);
    movie_.flushOperation();
    std::exception_ptr failure;
    movie_.decodeImage(
        [&] {
          try {
            beginWithFirstPicture();
            pumpTracks(makeTracks(preroll));
          } catch (...) {
            failure = std::current_exception();
          }
        },
        true);
    if (failure) std::rethrow_exception(failure);
  }

  void pumpTracks(const std::vector<FedTrack>& tracks) {
    const int64_t end = std::min(plan_.end.value_or(INT64_MAX), movie_.duration());
    Progress progress{.duration = knownLength(end - plan_.start)};
    JobQueue encoding(kMostJobs);
    const bool isEncoding = this->isEncoding();
    while (!events_.isInterrupted()) {
      const auto behind =
          std::ranges::min_element(tracks, {}, [](const auto& fed) { return fed.track->time(); });
      const int64_t time = behind->track->time();
      if (time == Track::kEnded) break;
      progress.time = lm_ff_time_to_double(time);
      if (events_.progress) events_.progress(progress);
      Track::Job job = behind->track->step();
      if (!job) continue;
      if (plan_.pictures() && behind == tracks.begin() && behind->track->isShown())
        ++progress.pictures;
      // A packet is written where it was read, while it is still in that core's cache.
      if (!isEncoding) {
        carryOut(job, *behind);
        continue;
      }
      encoding.push([this, job = std::move(job), &fed = *behind] { carryOut(job, fed); });
    }
    if (events_.isInterrupted()) return;
    for (const FedTrack& fed : tracks) {
      requireKeyPicture(fed);
      inputEnd_ = std::max(inputEnd_, fed.track->end());
      refused_ += fed.track->refused();
    }
    for (PlannedStream& planned : plan_.streams)
      for (const FedTrack& fed : tracks)
        if (fed.planned == &planned) noteLosses(*fed.track, planned);
    for (const FedTrack& fed : tracks)
      if (Track::Job rest = fed.track->finish())
        encoding.push([this, rest = std::move(rest), &fed] { carryOut(rest, fed); });
    encoding.finish();
    if (inputEnd_ == 0)
      throw Failure::input(settings_.input,
                           fmt::format("nothing could be decoded from '{}'", settings_.input));
  }

  void noteLosses(const Track& track, PlannedStream& planned) const {
    if (!track.hasBrought()) planned.losses.emplace_back("none were found in what was converted");
    if (track.missing() > 0)
      planned.losses.push_back(
          fmt::format("the first {:.3f} s, up to the key picture with which a copy into {} begins",
                      lm_ff_time_to_double(track.missing()), plan_.formatName));
    noteLeftOut(planned, track.tally());
  }

  /// Whether pictures would fit into one rate nobody could tell before of what is read only once.
  void noteLeftOut(PlannedStream& planned, const PictureTally& tally) const {
    if (tally.leftOut == 0 || source_->isSeekable() || settings_.fps || settings_.maxFps) return;
    planned.losses.push_back(
        picturesLost(static_cast<size_t>(tally.leftOut), static_cast<size_t>(tally.all),
                     oneRate(plan_.segment ? "hls" : plan_.formatName, plan_.rate())));
  }

  bool isEncoding() const {
    return std::ranges::any_of(plan_.streams, [](const PlannedStream& stream) {
      return stream.action == StreamAction::kEncode && stream.kind != Kind::kSubtitle;
    });
  }

  void carryOut(const Track::Job& job, const FedTrack& fed) {
    for (LMFFMovieFileOutput* const file : fed.files) {
      job(*file);
      requireOutput(*file, settings_.output);
    }
  }

  const ConversionSettings settings_;
  const std::shared_ptr<LMMediaSource> source_;
  const MediaInfo info_;  // of the source
  ConversionPlan plan_;
  const Part part_;
  const Events events_;
  Look look_;
  LMFFMovie movie_;
  RunFiles files_;
  std::vector<Rendition> renditions_;
  std::map<const PlannedStream*, HeardLevel> loudness_;  // of sound whose loudness is set
  const RunDivision division_;
  std::map<const PlannedStream*, std::unique_ptr<MadePackets>> made_;
  int64_t refused_ = 0;   // packets that copied tracks have left out
  int64_t inputEnd_ = 0;  // how much of the input there was, microseconds after the start
};

ConversionRun::ConversionRun(const ConversionSettings& settings,
                             std::shared_ptr<LMMediaSource> source, const MediaInfo& info,
                             ConversionPlan plan, Part part, const Events& events,
                             RunDivision division)
    : work_(std::make_unique<Work>(settings, std::move(source), info, std::move(plan), part, events,
                                   std::move(division))) {}

ConversionRun::~ConversionRun() = default;

void ConversionRun::setStatistics(const std::string& statistics) {
  work_->files().first().setVideoStatistics(statistics);
}

std::string ConversionRun::statistics() const { return work_->files().first().videoStatistics(); }

void ConversionRun::write(const std::string& path) { work_->write(path); }

std::vector<LoudnessChange> ConversionRun::loudness() const { return work_->loudness(); }

const ConversionPlan& ConversionRun::plan() const { return work_->plan(); }

InputEnd ConversionRun::inputEnd() const { return work_->inputEnd(); }

const std::vector<Rendition>& ConversionRun::renditions() const { return work_->renditions(); }

int64_t ConversionRun::length() const { return work_->length(); }

int64_t ConversionRun::refusedPackets() const { return work_->files().refusedPackets(); }

int64_t ConversionRun::picturesEncodedToHide() const {
  return work_->files().picturesEncodedToHide();
}

}  // namespace kestrel
