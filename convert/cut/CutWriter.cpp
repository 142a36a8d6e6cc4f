#include "convert/cut/CutWriter.h"

#include <kestrel/LMMediaSource.h>
#include <kestrel/convert/Failure.h>

#include <fmt/format.h>

#include <algorithm>
#include <deque>
#include <map>
#include <optional>
#include <utility>

#include "convert/cut/CutSound.h"
#include "convert/cut/StretchWriter.h"
#include "convert/probe/Codecs.h"
#include "convert/probe/Input.h"
#include "convert/probe/Labels.h"
#include "convert/probe/StreamsLeftOut.h"
#include "convert/run/PlannedOutput.h"
#include "support/Containers.h"
#include "support/DictionaryEntries.h"
#include "support/LastingTags.h"
#include "support/copy/PacketTimes.h"
#include "support/copy/StreamCopier.h"

namespace kestrel {

namespace {

using Kind = StreamInfo::Kind;

/// From how long before a window the input is read for what begins there and lasts.
constexpr int64_t kLead = 2000000;
constexpr int64_t kFarLead = 20000000;

/// The input is read on for so long behind the last picture, for sound that lies late in it.
constexpr int64_t kMostOverhang = 10000000;

class CutWriter {
 public:
  CutWriter(const CutJob& job, const PicturePlan& plan, StretchForm* form, int steps,
            const std::string& path)
      : job_(job), plan_(plan), form_(form), steps_(steps), path_(path), muxer_(errors_) {}

  CutResult run() {
    muxer_.create(path_, {}, job_.events.interrupt);
    requireNoError();
    if (!openPictures()) return std::move(result_);
    for (const StreamInfo& stream : job_.info.streams) openOther(stream);
    start();
    for (size_t i = 0; i < plan_.windows.size(); ++i) writeWindow(i);
    finish();
    return std::move(result_);
  }

 private:
  /// A stream whose packets are cut at the windows' borders.
  struct Other {
    const AVStream* input = nullptr;
    std::unique_ptr<StreamCopier> copier;
  };

  AVFormatContext& input() const { return *job_.outline; }

  bool encodes() const { return form_ && plan_.encoded() > 0; }

  void requireNoError() const {
    if (job_.events.isInterrupted()) throw Failure::interrupted();
    if (!errors_.get()) return;
    const std::string& target = job_.settings.output;
    throw Failure::output(target,
                          fmt::format("cannot write '{}': {}", target, errors_.get().message));
  }

  bool openPictures() {
    AVStream& stream = *input().streams[job_.video];
    requireContainerTakes(*muxer_.context()->oformat, stream, job_.settings.output);
    AVStream& output = *muxer_.addStream();
    described_.reset(avcodec_parameters_alloc());
    if (!described_ || avcodec_parameters_copy(described_.get(), stream.codecpar) < 0)
      throw std::bad_alloc();
    if (encodes()) result_.problem = form_->prepare(steps_, *described_);
    if (!result_.problem.empty()) return false;
    // The copier describes the output like the input: that has the output's codec data meanwhile.
    std::swap(*stream.codecpar, *described_);
    pictures_ = std::make_unique<StreamCopier>(stream, output, *muxer_.context()->oformat);
    std::swap(*stream.codecpar, *described_);
    errors_.note(pictures_->error());
    describe(stream, output);
    return true;
  }

  void describe(const AVStream& stream, AVStream& output) {
    const StreamInfo& info = job_.info.streams[static_cast<size_t>(stream.index)];
    std::map<std::string, std::string> tags;
    if (!info.language.empty()) {
      const std::string held = heldLanguage(*muxer_.context()->oformat, info.language);
      tags["language"] = held.empty() ? info.language : held;
    }
    for (const auto& [name, value] : info.tags)
      if (name == "title" || name == "filename" || name == "mimetype") tags[name] = value;
    addEntries(tags, &output.metadata);
    output.disposition = stream.disposition;
  }

  void openOther(const StreamInfo& info) {
    if (info.index == job_.video) return;
    const AVStream& stream = *input().streams[info.index];
    std::string problem;
    const unsigned before = muxer_.context()->nb_streams;
    if (info.kind == Kind::kAudio && stream.codecpar->sample_rate > 0)
      openSound(stream);
    else if (info.kind == Kind::kSubtitle && isTaken(stream))
      openCopied(stream);
    else if (info.kind == Kind::kAttachment && holdsAttachments(*muxer_.context()->oformat))
      openCopied(stream);
    else if (!isService(stream))
      problem = "the result has no place for it";
    if (muxer_.context()->nb_streams > before) describe(stream, *muxer_.context()->streams[before]);
    if (!problem.empty())
      result_.leftOut.push_back(fmt::format("stream {} ({}, {}) is not in the result: {}",
                                            info.index, info.type, info.codec, problem));
  }

  bool isTaken(const AVStream& stream) const {
    return holdsSubtitles(*muxer_.context()->oformat, stream.codecpar->codec_id, path_);
  }

  void openSound(const AVStream& stream) {
    auto sound = openCutSound(job_, stream, plan_.windows, muxer_, errors_);
    if (!sound) return;
    if (!sound->why().empty())
      result_.encoded.push_back(fmt::format("sound of stream {}: {}", stream.index, sound->why()));
    sounds_.emplace(stream.index, std::move(sound));
  }

  void openCopied(const AVStream& stream) {
    Other other{.input = &stream, .copier = {}};
    other.copier =
        std::make_unique<StreamCopier>(stream, *muxer_.addStream(), *muxer_.context()->oformat);
    errors_.note(other.copier->error());
    other.copier->settle();
    if (stream.codecpar->codec_type == AVMEDIA_TYPE_SUBTITLE)
      texts_.emplace(stream.index, std::move(other));
    else
      attachments_.push_back(std::move(other));
  }

  void start() {
    requireNoError();
    addEntries(lastingTags(job_.info.tags), &muxer_.context()->metadata);
    addChapters();
    pictures_->settle();
    if (isMpeg4(*muxer_.context()->oformat) && encodes() && form_->tag() != 0)
      pictures_->stream()->codecpar->codec_tag = form_->tag();
    std::map<std::string, std::string> options;
    // So that the end of edit lists is as exact as their beginning.
    if (isMpeg4(*muxer_.context()->oformat)) options["movie_timescale"] = "90000";
    muxer_.start(options);
    requireNoError();
    stretches_ = std::make_unique<StretchWriter>(
        job_, plan_, form_, steps_, *pictures_,
        [this](PacketPtr packet) { muxer_.write(*packet, *pictures_->stream()); });
    for (const PlannedPicture& picture : plan_.pictures)
      result_.shown.push_back(stretches_->outputTime(picture.shown));
  }

  int64_t microseconds(int64_t ticks) const {
    return av_rescale_q(ticks, job_.index.timebase, kMicroseconds);
  }

  void addChapters() {
    for (const CutWindow& window : plan_.windows) {
      const int64_t start = microseconds(window.start) - job_.start;
      const int64_t place = microseconds(window.place);
      for (const auto& chapter :
           chaptersOf(job_.info, start, microseconds(window.end) - job_.start))
        muxer_.addChapter(place + chapter.start_us, place + chapter.end_us, chapter.tags);
    }
  }

  /// A reader that stands before a window's first packets.
  std::shared_ptr<LMMediaSource> readerFor(size_t window) {
    const auto reader = job_.reader();
    reader->fillInTimes();
    const std::optional<size_t> first = stretches_->firstCopied(window);
    const int64_t start = microseconds(plan_.windows[window].start);
    for (const int64_t lead : {texts_.empty() ? kLead : kFarLead, kFarLead}) {
      held_.clear();
      if (!reader->seekBackward(start - lead)) break;
      if (!first || standsBefore(*reader, *first)) return reader;
    }
    held_.clear();
    reader->rewind();
    return reader;
  }

  /// Whether the next picture that a reader reads lies before another one; what is read is held.
  bool standsBefore(LMMediaSource& reader, size_t picture) {
    for (PacketPtr packet = makePacket(); reader.readPacket(packet.get()); packet = makePacket()) {
      const bool isPicture = packet->stream_index == static_cast<int>(job_.video);
      const std::optional<size_t> place =
          isPicture ? stretches_->placeOf(packet->pts) : std::nullopt;
      held_.push_back(std::move(packet));
      if (isPicture) return place && *place <= picture;
    }
    return false;
  }

  PacketPtr nextOf(LMMediaSource& reader) {
    PacketPtr packet = makePacket();
    if (held_.empty())
      return packet && reader.readPacket(packet.get()) ? std::move(packet) : nullptr;
    packet = std::move(held_.front());
    held_.pop_front();
    return packet;
  }

  void writeWindow(size_t window) {
    const auto reader = readerFor(window);
    stretches_->begin(window);
    const int64_t end = microseconds(plan_.windows[window].end);
    bool isOver = false;
    while (!isOver) {
      const PacketPtr packet = nextOf(*reader);
      if (!packet) break;
      const AVRational base = reader->formatContext()->streams[packet->stream_index]->time_base;
      const int64_t time = packet->dts != AV_NOPTS_VALUE ? packet->dts : packet->pts;
      take(*packet, window);
      const bool isFar =
          time != AV_NOPTS_VALUE && av_rescale_q(time, base, kMicroseconds) > end + kMostOverhang;
      isOver = stretches_->isDone(window) && (isFar || soundIsDone());
      requireNoError();
    }
    if (isInterrupted(*reader)) throw Failure::interrupted();
    if (!stretches_->isDone(window))
      throw Failure::input(job_.settings.input, "the input's pictures are not found a second time");
    pumpSound(stretches_->time());
  }

  bool soundIsDone() const {
    return std::ranges::all_of(sounds_, [](const auto& sound) { return sound.second->isDone(); });
  }

  void take(const AVPacket& packet, size_t window) {
    if (packet.stream_index == static_cast<int>(job_.video)) {
      if (stretches_->take(packet)) tellProgress();
      return;
    }
    if (const auto sound = sounds_.find(packet.stream_index); sound != sounds_.end())
      sound->second->take(packet);
    if (const auto text = texts_.find(packet.stream_index); text != texts_.end())
      takeText(packet, text->second, window);
  }

  void pumpSound(int64_t time) {
    for (auto& [index, sound] : sounds_) sound->pump(time);
  }

  void tellProgress() {
    const int64_t time = stretches_->time();
    pumpSound(time);
    const CutWindow& last = plan_.windows.back();
    if (job_.events.progress)
      job_.events.progress(
          {.time = static_cast<double>(time) / 1e6,
           .duration = static_cast<double>(microseconds(last.place + last.length())) / 1e6,
           .pictures = stretches_->written()});
  }

  /// What of a text shows within a window.
  void takeText(const AVPacket& packet, const Other& text, size_t window) {
    if (packet.pts == AV_NOPTS_VALUE) return;
    const CutWindow& cut = plan_.windows[window];
    const AVRational base = job_.index.timebase;
    const int64_t start = av_rescale_q(cut.start, base, text.input->time_base);
    const int64_t end = av_rescale_q(cut.end, base, text.input->time_base);
    const int64_t from = std::max(packet.pts, start);
    const int64_t to = std::min(packet.pts + packet.duration, end);
    const bool isTimeless = packet.duration <= 0;  // up to the next one
    if (isTimeless ? packet.pts < start || packet.pts >= end : from >= to) return;
    PacketPtr own(av_packet_clone(&packet));
    if (!own) throw std::bad_alloc();
    own->pts = own->dts = from - start + av_rescale_q(cut.place, base, text.input->time_base);
    own->duration = isTimeless ? 0 : to - from;
    av_packet_rescale_ts(own.get(), text.input->time_base, text.copier->stream()->time_base);
    text.copier->push(std::move(own));
    writeReady(*text.copier);
  }

  void writeReady(StreamCopier& copier) {
    while (PacketPtr packet = copier.pop()) muxer_.write(*packet, *copier.stream());
  }

  void finish() {
    for (auto& [index, sound] : sounds_) sound->finish();
    stretches_->finish();
    muxer_.complete();
    muxer_.close();
    requireNoError();
    result_.problem = stretches_->problem();
    for (const PictureRun& stretch : plan_.stretches) tell(stretch);
    for (auto& [index, sound] : sounds_)
      for (CutStretch& stretch : sound->stretches())
        result_.stretches.push_back(std::move(stretch));
  }

  void tell(const PictureRun& stretch) {
    int64_t start = INT64_MAX;
    int64_t end = INT64_MIN;
    for (size_t i = 0; i < stretch.count; ++i) {
      const PlannedPicture& picture = plan_.pictures[stretch.first + i];
      start = std::min(start, picture.source);
      end = std::max(end, picture.source + picture.duration);
    }
    result_.stretches.push_back({.kind = "video",
                                 .stream = job_.video,
                                 .start = microseconds(start) - job_.start,
                                 .end = microseconds(end) - job_.start,
                                 .isEncoded = stretch.isEncoded,
                                 .packets = static_cast<int64_t>(stretch.count),
                                 .why = stretch.why});
  }

  const CutJob& job_;
  const PicturePlan& plan_;
  StretchForm* const form_;
  const int steps_;
  const std::string path_;
  FirstError errors_;
  Muxer muxer_;
  ParametersPtr described_;
  std::unique_ptr<StreamCopier> pictures_;
  std::unique_ptr<StretchWriter> stretches_;
  std::map<int, std::unique_ptr<CutSound>> sounds_;
  std::map<int, Other> texts_;
  std::vector<Other> attachments_;
  std::deque<PacketPtr> held_;
  CutResult result_;
};

}  // namespace

CutResult writeCut(const CutJob& job, const PicturePlan& plan, StretchForm* form, int steps,
                   const std::string& path) {
  return CutWriter(job, plan, form, steps, path).run();
}

}  // namespace kestrel
