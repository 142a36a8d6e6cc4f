#include <kestrel/Image.h>
#include <kestrel/LMFFAudioResample.h>
#include <kestrel/LMFFImage.h>
#include <kestrel/LMFFMedia.h>
#include <kestrel/LMFFMediaStream.h>
#include <kestrel/LMFFMovie.h>
#include <kestrel/TextSubtitle.h>

#include <algorithm>
#include <utility>

#include "media/LMFFMediaState.h"
#include "media/StreamTime.h"
#include "media/SubtitleHistory.h"
#include "support/Containers.h"

namespace kestrel {

namespace {

constexpr int kMostForwards = 10;
constexpr int64_t kLookAhead = 2000000;  // microseconds
constexpr int kMostPacketsAfterSeek = 1001;
constexpr int kMostAsfRetries = 10;
constexpr int kChannels = 2;

/// Backward seeks may land late: in formats without an index by a packet's place in the file, in
/// others on a key frame that is decoded before the time wanted but shown after it. These are how
/// far (microseconds) one goes back further.
constexpr int64_t kBackSteps[] = {0, 1000000, 2000000, 5000000, 10000000, 20000000, 40000000};
constexpr int kMostPacketsToProbe = 500;
constexpr int kMostLeadingPictures = 8;

/// A bitmap subtitle that is shown at a time began so long (microseconds) before it at most, and is
/// looked for among so many packets.
constexpr int64_t kSubtitleLead = 20000000;
constexpr int kMostPacketsForSubtitle = 20000;

int64_t packetTime(const AVPacket& packet) {
  return packet.pts == AV_NOPTS_VALUE ? packet.dts : packet.pts;
}

/// Whether a stream's first packet is not later than a time; of pictures, a key picture.
bool canStartAt(const LMFFMediaStream& stream, const AVPacket& packet, int64_t time) {
  if (stream.isVideo() && !(packet.flags & AV_PKT_FLAG_KEY)) return false;
  int64_t start = packetTime(packet);
  if (start == AV_NOPTS_VALUE) return false;
  // Where only the order of decoding is dated, pictures that are decoded after a key picture may be
  // shown before it, and are lost when decoding starts there.
  const bool mayLead = stream.isVideo() && stream.codecContext()->has_b_frames > 0;
  if (packet.pts == AV_NOPTS_VALUE && mayLead) start += kMostLeadingPictures * packet.duration;
  return av_compare_ts(start, toAV(stream.timebase()), time, kMicroseconds) <= 0;
}

/// Reads on to find out whether every enabled stream of sound and pictures can be decoded from
/// `time` on: whether its first packet is a key frame and not later.
bool startsBefore(LMMediaSource& source, const LMFFMedia& media, int64_t time) {
  auto waiting = media.videos();
  std::ranges::copy(media.audios(), std::back_inserter(waiting));
  const PacketPtr packet = makePacket();
  for (int i = 0; i < kMostPacketsToProbe && !waiting.empty(); ++i) {
    if (!source.readPacket(packet.get())) return i > 0;  // some seeks end up at the end
    const auto found = std::ranges::find_if(waiting, [&](const auto& stream) {
      return stream->stream()->index == packet->stream_index;
    });
    const bool isUsable = found == waiting.end() || canStartAt(**found, *packet, time);
    if (found != waiting.end()) waiting.erase(found);
    av_packet_unref(packet.get());
    if (!isUsable) return false;
  }
  return true;
}

/// Moves the demuxer to the input's very first packets: sound decoders need those from before the
/// first sample that is heard.
bool seekToBeginning(LMMediaSource& source, const LMFFMedia& media) {
  const auto context = source.sharedContext();
  const bool hasIndex = context && !(context->iformat->flags & AVFMT_TS_DISCONT);
  if (hasIndex) return source.seekBackward(std::min<int64_t>(media.start_time(), 0) - kLookAhead);
  return source.rewind();
}

/// Moves the demuxer to a place from which `time` can be decoded.
bool seekContainer(LMMediaSource& source, const LMFFMedia& media, int64_t time) {
  for (const int64_t back : kBackSteps) {
    const int64_t target = time - back;
    if (target <= media.start_time()) break;
    if (!source.seekBackward(target)) break;
    if (startsBefore(source, media, time)) return source.seekBackward(target);
  }
  return seekToBeginning(source, media) ||
         source.seekBackward(std::min(time, media.start_time())) || source.seekBackward(time) ||
         source.rewind();
}

/// Where the last decoded sound that was resampled ends, in resampled samples.
int64_t decodedSoundEnd(const LMFFMediaStream& stream) {
  const AVFrame& frame = *stream.frame();
  if (frame.pts == AV_NOPTS_VALUE) return 0;
  const AVRational framebase = toAV(stream.framebase());
  const int64_t end =
      av_rescale_q(frame.pts, toAV(stream.timebase()), framebase) + frame.nb_samples;
  const auto resampler = stream.resample();
  return av_rescale_q(end, framebase, toAV(stream.audioOutputTimebase())) -
         (resampler ? resampler->heldSamples() : 0);
}

}  // namespace

/// What is heard does not wait for pictures, which may take long.
void LMFFMedia::keepSoundGoing() const {
  LMFFMovie* const owner = movie();
  const bool isHeard = owner && !owner->exportMovie();
  if (isHeard && hasVideo() && !hasAudio()) owner->keepSoundGoing();
}

bool LMFFMedia::forwardNextPacket() {
  const auto input = source();
  if (!input || !input->isOpen()) return false;
  keepSoundGoing();
  if (!state_->inputEnded) {
    state_->hasRead = true;
    AVPacket* packet = state_->packet.get();
    if (input->readPacket(packet)) {
      forwardPacket(packet);
      av_packet_unref(packet);
      return true;
    }
    state_->inputEnded = true;
  }
  for (const auto& stream : streams())
    if (stream->enable() && stream->drain()) return true;
  state_->decodersEmpty = true;
  return false;
}

void LMFFMedia::forwardPacket(const AVPacket* packet) {
  const auto stream = mediaStreamForStreamIndex(static_cast<uint32_t>(packet->stream_index));
  if (!stream || !stream->enable()) return;
  if (stream->isVideo() && movie() && movie()->disableVideo()) return;
  if (const int64_t time = packetTime(*packet); time != AV_NOPTS_VALUE)
    setLast_pts(av_rescale_q(time, toAV(stream->timebase()), kMicroseconds));
  stream->decodePacket(packet);
  if (stream->isVideo())
    state_->fillingUntil = stream->isDecoderFilling() ? last_pts() : AV_NOPTS_VALUE;
}

/// Whether reading has come to a time; of a decoder that is still filling, that it is as far beyond
/// its newest packet as one looks ahead. That takes few packets, of which each may last long.
bool LMFFMedia::isBeyond(int64_t limit) const {
  if (state_->fillingUntil != AV_NOPTS_VALUE)
    limit = std::max(limit, state_->fillingUntil + kLookAhead);
  return last_pts() >= limit;
}

bool LMFFMedia::isAtEnd() const { return state_->inputEnded && state_->decodersEmpty; }

bool LMFFMedia::forwardStream(const std::shared_ptr<LMFFMediaStream>& stream) {
  if (!stream) return false;
  LMFFMovie* owner = movie();
  int64_t limit = last_pts();
  if (stream->isAudio() && !stream->isCopied())
    limit = std::min(limit, av_rescale_q(stream->audio_sync_frame(),
                                         toAV(stream->audioOutputTimebase()), kMicroseconds));
  const bool isDrivenByVideo = !stream->isVideo() && hasVideo();
  if (isDrivenByVideo && owner && !owner->exportMovie())
    videoFrameAtTime(owner->currentTime() - movie_position());

  stream->setHasFrame(false);
  limit += kLookAhead;
  if (stream->takeQueuedFrame()) return true;
  for (;;) {
    if (stream->hasFrame() || stream->hasPacket()) return true;
    if (isDrivenByVideo) return true;
    if (stream->isVideo() ? isBeyond(limit) : last_pts() >= limit) return true;
    if (!forwardNextPacket()) return false;
  }
}

std::shared_ptr<LMFFImage> LMFFMedia::readNextPacketInStream(
    const std::shared_ptr<LMFFMediaStream>& stream) {
  if (!stream) return nullptr;
  auto packet = stream->popFirstRawPacket();
  for (int i = 0; !packet && i < kMostForwards && forwardStream(stream); ++i)
    packet = stream->popFirstRawPacket();
  if (!packet) return nullptr;
  packet->setPkt_time_offset(start_time());
  packet->setPkt_display_time(movie_position());
  return packet;
}

std::shared_ptr<LMFFImage> LMFFMedia::readNextVideoPacket() {
  return readNextPacketInStream(videoStream());
}

std::shared_ptr<LMFFImage> LMFFMedia::readNextAudioPacket() {
  return readNextPacketInStream(audioStream());
}

std::shared_ptr<const Image> LMFFMedia::subtitleAtTime(int64_t time) const {
  const auto stream = subtitleStream();
  return stream ? stream->subtitleAt(toStream(start_time() + time, *stream)) : nullptr;
}

/// Reads texts for as long as the newest one leaves more to be wanted for `target`.
void LMFFMedia::readTexts(const std::shared_ptr<LMFFMediaStream>& stream, int64_t target,
                          const std::function<bool(const AVFrame&)>& isMoreWanted) {
  while (isMoreWanted(*stream->frame())) {
    if (!forwardStream(stream)) break;
    // A media with pictures does not read for its texts by itself: read up to the time, no further.
    if (hasVideo() && (last_pts() >= target || !forwardNextPacket())) break;
  }
}

std::optional<std::string> LMFFMedia::subtitleStringAtTime(int64_t time) {
  const auto stream = subtitleStream();
  if (!stream) return std::nullopt;
  const int64_t target = start_time() + time;
  const int64_t wanted = toStream(target, *stream);
  readTexts(stream, target, [wanted](const AVFrame& text) { return frameEnd(text) < wanted; });
  const AVFrame& text = *stream->frame();
  return SubtitleSpan{text.pts, frameDuration(text)}.contains(wanted) ? stream->subtitleString()
                                                                      : std::nullopt;
}

std::optional<std::string> LMFFMedia::subtitleMarkupAtTime(int64_t time) {
  const auto stream = subtitleStream();
  if (!stream) return std::nullopt;
  const int64_t target = start_time() + time;
  const int64_t wanted = toStream(target, *stream);
  // Until one begins later, another that is shown may follow.
  readTexts(stream, target, [wanted](const AVFrame& text) { return text.pts < wanted; });
  return stream->subtitleMarkupAt(wanted);
}

TextSubtitle LMFFMedia::textSubtitleAtTime(int64_t time, const SubtitleCanvas& canvas) {
  const auto stream = subtitleStream();
  if (!stream) return {};
  const int64_t target = start_time() + time;
  const int64_t wanted = toStream(target, *stream);
  readTexts(stream, target, [wanted](const AVFrame& text) { return text.pts <= wanted; });
  return stream->textSubtitleAt(target, canvas);
}

void LMFFMedia::readAudioStream(const std::shared_ptr<LMFFMediaStream>& stream, float* data,
                                int32_t frame) {
  int32_t available = stream->outputSamples();
  while (available < frame) {
    const int32_t before = available;
    const bool forwarded = forwardStream(stream);
    available = stream->outputSamples();
    if (!forwarded || available <= before) break;
  }
  // Sound that is due later than this whole request waits for its time.
  const int64_t position = stream->audio_sync_frame();
  const bool isDue = available + frame + position > decodedSoundEnd(*stream);
  if (isDue && available >= frame) stream->readSample(data, frame);
  stream->setAudio_sync_frame(position + frame);
}

bool LMFFMedia::readSample(float* data, int32_t frame) {
  const auto count = static_cast<size_t>(std::max(frame, 0)) * kChannels;
  auto& scratch = state_->scratch;
  for (const auto& stream : audios()) {
    scratch.assign(count, 0);
    readAudioStream(stream, scratch.data(), frame);
    std::transform(scratch.begin(), scratch.end(), data, data, std::plus<>());
  }
  return true;
}

void LMFFMedia::seek(int64_t time) {
  const auto demuxer = sharedContext();
  AVFormatContext* context = demuxer.get();
  if (!context) return;
  keepSoundGoing();
  state_->inputEnded = false;
  state_->decodersEmpty = false;
  state_->fillingUntil = AV_NOPTS_VALUE;
  setLast_pts(AV_NOPTS_VALUE);
  const int64_t target = start_time() + time;
  const int64_t clamped = std::max<int64_t>(target, 0);
  const auto list = streams();
  for (const auto& stream : list)
    if (stream->isOpen() || stream->isCopied()) stream->seek(toStream(target, *stream));

  // RealMedia's index is coarse: aim a tenth of a second earlier.
  const int64_t containerTarget =
      isRealMedia(*context)
          ? static_cast<int64_t>(static_cast<double>(target) - 0.1 * kMicroseconds.den)
          : clamped;
  // What comes only once is read from where it is; and a demuxer at its beginning has every packet
  // still to come, where seeking there would drop those that lie before the first key picture.
  // A picture file's demuxer gives nothing after a seek to its one picture.
  const bool isFresh = !state_->hasRead && (time <= 0 || isOfPictureFiles(*context));
  const auto input = source();
  const bool canSeek = input->isSeekable() && !isFresh;
  if (canSeek) showFirstPackets();
  if (canSeek) readSubtitleBefore(target);
  if (canSeek && !seekContainer(*input, *this, containerTarget)) {
    const bool isSubtitleFile = list.size() == 1 && list.front()->isSubtitle();
    if (isSubtitleFile && target == 0)
      avformat_seek_file(context, -1, 0, 0, 0, AVSEEK_FLAG_FRAME);
    else
      input->seekBackward(clamped);
  }
  if (canSeek && isAsf(*context)) correctAsfSeek(target);
  // The queue of copied pictures holds the newest packet alone: from the start, keep the first.
  const auto hasFirstPicture = [this, time] {
    const auto stream = time <= 0 ? videoStream() : nullptr;
    return stream && stream->hasPacket();
  };
  // Where packets carry no times, only the pictures tell how far one is.
  const auto isReached = [&] {
    const auto stream = videoStream();
    const bool hasPicture = stream && stream->frame()->data[0] && hasPictureFor(time);
    return last_pts() >= target || hasPicture || hasFirstPicture();
  };
  for (int i = 0; i < kMostPacketsAfterSeek && !isReached(); ++i)
    if (!forwardNextPacket()) break;
  // Decoders lag behind what they are given: go on until the picture itself is there.
  while (!hasPictureFor(time) && !isBeyond(target + kLookAhead) && forwardNextPacket()) {
  }
  if (isMp3(*context) && hasAudio())
    while (audioStream()->outputSamples() == 0 && forwardNextPacket()) {
    }
}

/// Before anything but the input's beginning is decoded: shows decoders that need it what stands
/// there.
void LMFFMedia::showFirstPackets() {
  auto waiting = videos();
  std::erase_if(waiting, [](const auto& stream) { return !stream->needsFirstPacket(); });
  const auto input = source();
  if (waiting.empty() || !seekToBeginning(*input, *this)) return;
  state_->hasRead = true;
  AVPacket* packet = state_->packet.get();
  for (int i = 0; i < kMostPacketsToProbe && !waiting.empty(); ++i) {
    if (!input->readPacket(packet)) return;
    std::erase_if(waiting, [packet](const auto& stream) {
      const bool isOwn = stream->stream()->index == packet->stream_index;
      if (isOwn) stream->showFirstPacket(packet);
      return isOwn;
    });
    av_packet_unref(packet);
  }
}

/// Decodes the subtitles shown at a time of the container's, and those shortly before it: they
/// may have begun long before the key picture from which the time's picture is decoded.
void LMFFMedia::readSubtitleBefore(int64_t target) {
  auto wanted = streams();
  std::erase_if(wanted, [](const auto& each) { return !each->enable() || !each->isSubtitle(); });
  if (wanted.empty() || target <= start_time()) return;
  const auto input = source();
  const int64_t from = target - kSubtitleLead;
  state_->hasRead = true;
  const bool isMoved = from > start_time() && input->seekBackward(from);
  if (!isMoved && !seekToBeginning(*input, *this)) return;
  AVPacket* packet = state_->packet.get();
  bool isPast = false;
  for (int i = 0; i < kMostPacketsForSubtitle && !isPast; ++i) {
    if (!input->readPacket(packet)) return;
    const auto stream = mediaStreamForStreamIndex(static_cast<uint32_t>(packet->stream_index));
    const int64_t time = packet->dts == AV_NOPTS_VALUE ? packet->pts : packet->dts;
    isPast = stream && time != AV_NOPTS_VALUE &&
             av_compare_ts(time, toAV(stream->timebase()), target, kMicroseconds) >= 0;
    if (!isPast && std::ranges::count(wanted, stream)) stream->decodePacket(packet);
    av_packet_unref(packet);
  }
}

/// ASF seeks land late: goes back by growing steps until what is read lies before the target.
void LMFFMedia::correctAsfSeek(int64_t target) {
  if (!forwardNextPacket()) return;
  for (int i = 0; i < kMostAsfRetries && last_pts() > target; ++i) {
    const int64_t earlier = target - static_cast<int64_t>(i) * 5 * kMicroseconds.den / 2;
    source()->seekBackward(std::max<int64_t>(earlier, 0));
    if (!forwardNextPacket()) return;
  }
}

}  // namespace kestrel
