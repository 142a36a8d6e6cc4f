#include <kestrel/convert/Check.h>

#include <kestrel/LMFFFormat.h>
#include <kestrel/LMMediaSource.h>
#include <kestrel/convert/Failure.h>
#include <kestrel/convert/MediaInfo.h>
#include <kestrel/convert/Text.h>

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "convert/check/Findings.h"
#include "convert/check/PictureInspector.h"
#include "convert/check/SoundInspector.h"
#include "convert/probe/Input.h"
#include "convert/settings/Require.h"
#include "platform/codec/Codec.h"
#include "support/FFmpegOwners.h"
#include "support/LibraryLog.h"
#include "support/Pipes.h"

extern "C" {
#include <libavformat/avformat.h>
}

namespace kestrel {

namespace {

constexpr double kLeastSeconds = 0.1;
constexpr double kMostSeconds = 100'000;

/// What lengths may be off by; microseconds.
constexpr int64_t kLengthTolerance = 1'000'000;

/// A stream's packets on their way through its decoder to whoever looks at what comes out.
class CheckedStream {
 public:
  CheckedStream(const AVStream& stream, int64_t begin, const CheckSettings& settings)
      : stream_(stream),
        begin_(begin),
        refused_(CheckKind::kDamage, index(), "packet", "cannot be decoded"),
        mended_(CheckKind::kDamage, index(), "picture", "made up in part") {
    const DecoderOptions options{.timebase = stream.time_base, .threads = isPictures() ? 0 : 1};
    const LibraryLog log;
    openDecoder(decoder_, *stream.codecpar, options);
    if (!decoder_) return;
    if (isPictures())
      pictures_.emplace(stream, settings);
    else
      sound_.emplace(index(), settings);
  }

  bool canDecode() const { return decoder_ != nullptr; }
  bool isPictures() const { return stream_.codecpar->codec_type == AVMEDIA_TYPE_VIDEO; }
  uint32_t index() const { return static_cast<uint32_t>(stream_.index); }
  const AVStream& stream() const { return stream_; }

  /// Null at the end of the input.
  void take(const AVPacket* packet, Findings& findings) {
    const LibraryLog log;
    const int errors =
        decodePacket(*decoder_, packet, [&](const FramePtr& frame) { look(*frame, findings); });
    if (!packet) return;
    hasPackets_ = true;
    const auto time = timeOf(packet->pts == AV_NOPTS_VALUE ? packet->dts : packet->pts);
    const int64_t at = time.value_or(end());
    // Before the first picture that needs no other, pictures lack what they need.
    if (hasBegun_) refused_.add(at, at, errors, findings);
    early_ += hasBegun_ ? 0 : errors;
    packetEnd_ = std::max(packetEnd_, at + av_rescale_q(std::max<int64_t>(packet->duration, 0),
                                                        stream_.time_base, kMicroseconds));
  }

  void finish(Findings& findings) {
    take(nullptr, findings);
    if (!hasBegun_ && early_ > 0) refused_.add(0, packetEnd_, early_, findings);
    refused_.finish(findings);
    mended_.finish(findings);
    if (pictures_) pictures_->finish(findings);
    if (sound_) sound_->finish(findings);
  }

  bool hasBegun() const { return hasBegun_; }
  bool hasPackets() const { return hasPackets_; }
  int64_t end() const { return pictures_ ? pictures_->end() : sound_ ? sound_->end() : 0; }
  int64_t pictureCount() const { return pictures_ ? pictures_->pictures() : 0; }

 private:
  std::optional<int64_t> timeOf(int64_t ticks) const {
    if (ticks == AV_NOPTS_VALUE) return std::nullopt;
    return av_rescale_q(ticks, stream_.time_base, kMicroseconds) - begin_;
  }

  void look(const AVFrame& frame, Findings& findings) {
    const auto time = timeOf(frame.best_effort_timestamp);
    const int64_t at = time.value_or(end());
    if (hasBegun_ && frame.decode_error_flags & FF_DECODE_ERROR_CONCEALMENT_ACTIVE)
      mended_.add(at, at, 1, findings);
    if (pictures_) {
      hasBegun_ = hasBegun_ || frame.key_frame || pictures_->pictures() > 0;
      pictures_->take(frame, time, findings);
    } else {
      hasBegun_ = true;
      sound_->take(frame, time, findings);
    }
  }

  const AVStream& stream_;
  const int64_t begin_;  // of the input
  CodecContextPtr decoder_;
  Incidents refused_;
  Incidents mended_;
  std::optional<PictureInspector> pictures_;
  std::optional<SoundInspector> sound_;
  bool hasPackets_ = false;
  bool hasBegun_ = false;
  int64_t early_ = 0;
  int64_t packetEnd_ = 0;
};

std::string secondsText(int64_t time) { return formatNumber(lm_ff_time_to_double(time), 2); }

class Checker {
 public:
  Checker(const CheckSettings& settings, const Events& events)
      : settings_(settings), events_(events), source_(openInput(settings, events.interrupt)) {
    source_->fillInTimes();
    info_ = mediaInfoOf(*source_);
    const AVFormatContext& input = *source_->formatContext();
    const int64_t begin = info_.startTime.value_or(0);
    for (unsigned i = 0; i < input.nb_streams; ++i) {
      const AVStream& stream = *input.streams[i];
      const AVMediaType type = stream.codecpar->codec_type;
      const bool isCover = (stream.disposition & AV_DISPOSITION_ATTACHED_PIC) != 0;
      if (isCover || (type != AVMEDIA_TYPE_VIDEO && type != AVMEDIA_TYPE_AUDIO)) continue;
      auto checked = std::make_unique<CheckedStream>(stream, begin, settings);
      if (checked->canDecode()) streams_[static_cast<int>(i)] = std::move(checked);
    }
    if (streams_.empty())
      throw Failure::input(
          settings.input,
          fmt::format("'{}' has no picture and no sound that can be decoded", settings.input));
  }

  CheckResult run() {
    CheckResult result;
    const PacketPtr packet = makePacket();
    while (!events_.isInterrupted() && source_->readPacket(packet.get())) {
      const auto stream = streams_.find(packet->stream_index);
      if (stream != streams_.end())
        stream->second->take(packet.get(), findings_);
      else
        passBy(*packet);
      av_packet_unref(packet.get());
      if (stream != streams_.end()) tell();
    }
    if (events_.isInterrupted()) throw Failure::interrupted();
    for (const auto& [index, stream] : streams_) stream->finish(findings_);
    result.length = end();
    result.pictures = pictures();
    judgeLengths();
    if (const Error error = source_->lastError())
      findings_.add({.kind = CheckKind::kDamage,
                     .start = end(),
                     .end = end(),
                     .sentence = "reading ended: " + error.message});
    result.findings = findings_.take();
    for (const CheckFinding& finding : result.findings)
      if (finding.isFault)
        result.report.find(fmt::format("{}: {} to {}: {}", shownName(settings_.input),
                                       formatTime(lm_ff_time_to_double(finding.start)),
                                       formatTime(lm_ff_time_to_double(finding.end)),
                                       finding.sentence));
    return result;
  }

 private:
  int64_t end() const {
    int64_t end = 0;
    for (const auto& [index, stream] : streams_) end = std::max(end, stream->end());
    return end;
  }

  int64_t pictures() const {
    int64_t pictures = 0;
    for (const auto& [index, stream] : streams_) pictures += stream->pictureCount();
    return pictures;
  }

  void tell() const {
    if (!events_.progress) return;
    const auto duration = info_.duration;
    events_.progress(
        {.time = lm_ff_time_to_double(end()),
         .duration = duration ? std::optional(lm_ff_time_to_double(*duration)) : std::nullopt,
         .pictures = pictures()});
  }

  /// Streams that are not looked at may be what makes a file as long as it says.
  void passBy(const AVPacket& packet) {
    if (packet.pts == AV_NOPTS_VALUE) return;
    const AVStream& stream = *source_->formatContext()->streams[packet.stream_index];
    const int64_t last = av_rescale_q(packet.pts + std::max<int64_t>(packet.duration, 0),
                                      stream.time_base, kMicroseconds);
    passedBy_ = std::max(passedBy_, last - info_.startTime.value_or(0));
  }

  /// What streams and file promise, and whether they end together.
  void judgeLengths() {
    bool isShort = false;
    for (const auto& [index, stream] : streams_) {
      if (!stream->hasBegun()) {
        findings_.add(
            {.kind = CheckKind::kDamage,
             .stream = stream->index(),
             .end = end(),
             .sentence = stream->hasPackets() ? "nothing of it could be decoded" : "it is empty"});
        continue;
      }
      isShort |= judgeLength(stream->index(), stream->end(),
                             info_.streams[stream->index()].promisedLength);
    }
    const int64_t promised = info_.promisedLength;
    if (!isShort && promised > 0) judgeWhole(promised);
    for (const auto& [index, stream] : streams_)
      if (stream->hasBegun() && end() - stream->end() > kLengthTolerance)
        findings_.add({.kind = CheckKind::kLength,
                       .stream = stream->index(),
                       .start = stream->end(),
                       .end = end(),
                       .isFault = false,
                       .sentence = fmt::format("the {} end{} {} s before the movie",
                                               stream->isPictures() ? "pictures" : "sound",
                                               stream->isPictures() ? "" : "s",
                                               secondsText(end() - stream->end()))});
  }

  /// Answers whether a stream is shorter than it promises.
  bool judgeLength(uint32_t index, int64_t reached, int64_t promised) {
    if (promised - reached <= kLengthTolerance) return false;
    findings_.add({.kind = CheckKind::kLength,
                   .stream = index,
                   .start = reached,
                   .end = promised,
                   .sentence = fmt::format("it ends at {} of the {} s that are promised",
                                           secondsText(reached), secondsText(promised))});
    return true;
  }

  void judgeWhole(int64_t promised) {
    const int64_t reached = std::max(end(), passedBy_);
    if (std::llabs(promised - reached) <= kLengthTolerance) return;
    findings_.add({.kind = CheckKind::kLength,
                   .start = std::min(reached, promised),
                   .end = std::max(reached, promised),
                   .sentence = fmt::format("the file promises {} s, and there are {}",
                                           secondsText(promised), secondsText(reached))});
  }

  const CheckSettings& settings_;
  const Events& events_;
  std::shared_ptr<LMMediaSource> source_;
  MediaInfo info_;
  std::map<int, std::unique_ptr<CheckedStream>> streams_;
  Findings findings_;
  int64_t passedBy_ = 0;  // where packets end that are not looked at
};

}  // namespace

CheckResult check(const CheckSettings& settings, const Events& events) {
  requireNumber("black", settings.black, kLeastSeconds, kMostSeconds);
  requireNumber("frozen", settings.frozen, kLeastSeconds, kMostSeconds);
  requireNumber("silence", settings.silence, kLeastSeconds, kMostSeconds);
  try {
    return Checker(settings, events).run();
  } catch (const Failure& failure) {
    if (failure.kind() != Failure::Kind::kInterrupted) throw;
    return {.report = Report::interrupted()};
  }
}

}  // namespace kestrel
