#include "convert/feed/Readers.h"

#include <kestrel/LMFFAudioResample.h>
#include <kestrel/LMFFMedia.h>
#include <kestrel/LMFFMediaStream.h>
#include <kestrel/LMMediaSource.h>

#include <utility>

#include "convert/plan/SoundFormat.h"

extern "C" {
#include <libavformat/avformat.h>
}

namespace kestrel {

namespace {

using Kind = StreamInfo::Kind;

/// Covers and attachments lie in the container's head.
bool isRead(const PlannedStream& stream) {
  return stream.isKept() && !stream.isCover &&
         (stream.kind == Kind::kVideo || stream.kind == Kind::kAudio ||
          stream.kind == Kind::kSubtitle);
}

/// Whether a stream is read with the pictures.
bool goesWithPictures(const PlannedStream& stream, const PlannedStream* pictures) {
  if (!pictures || stream.kind != Kind::kAudio) return true;
  return stream.action == StreamAction::kCopy && pictures->action == StreamAction::kCopy;
}

/// A stream that a media has chosen, be there a decoder or none.
ReadStream streamAt(const LMFFMovie::MediaList& medias, uint32_t index) {
  for (const auto& media : medias) {
    const auto wanted = media->selectStreams();
    if (wanted && wanted->contains(index)) return {media, media->mediaStreamForStreamIndex(index)};
  }
  return {};
}

/// Has a stream's packets copied or its sound resampled.
void prepare(const LMFFMovie::MediaList& medias, const PlannedStream& planned) {
  for (const uint32_t index : planned.sources) {
    const ReadStream read = streamAt(medias, index);
    if (!read.stream) continue;
    // Subtitles are decoded on their way into another form, by the output.
    const bool isCopied = planned.action == StreamAction::kCopy || planned.kind == Kind::kSubtitle;
    read.stream->setCopied(isCopied);
    if (isCopied) read.stream->setEnable(true);
    const auto resample = isCopied ? nullptr : read.stream->resample();
    if (!resample) continue;
    // What rises above full scale in the sum is limited on its way to the encoder.
    resample->setKeepsLevel(true);
    resample->setPrecise(true);
    resample->setOutFormat({carriedSamples(*read.stream->stream()->codecpar, planned),
                            planned.sound.channelLayout, planned.sound.sampleRate});
  }
}

}  // namespace

LMFFMovie::MediaList openReaders(const std::shared_ptr<LMMediaSource>& source,
                                 const ConversionPlan& plan) {
  const PlannedStream* const pictures = plan.pictures();
  IndexSet first;
  IndexSet second;
  for (const PlannedStream& stream : plan.streams)
    if (isRead(stream))
      (goesWithPictures(stream, pictures) ? first : second)
          .insert(stream.sources.begin(), stream.sources.end());

  const auto media = std::make_shared<LMFFMedia>();
  media->setSource(source);
  media->setSelectStreams(first);
  media->open();
  LMFFMovie::MediaList medias{media};
  if (!second.empty()) {
    const auto other = media->copy();
    other->setSelectStreams(second);
    if (source->isSeekable()) other->open();
    if (other->isOpen()) {
      medias.push_back(other);
    } else {
      first.insert(second.begin(), second.end());
      media->setSelectStreams(first);
      media->updateSelectStreams();
    }
  }
  for (const PlannedStream& stream : plan.streams)
    if (isRead(stream)) prepare(medias, stream);
  return medias;
}

ReadStream readerOf(const LMFFMovie::MediaList& medias, uint32_t index) {
  const ReadStream read = streamAt(medias, index);
  const bool isRead = read.stream && (read.stream->isOpen() || read.stream->isCopied());
  return isRead ? read : ReadStream{};
}

}  // namespace kestrel
