#include "convert/join/JoinFormat.h"

#include <string>
#include <utility>

#include "convert/plan/ConversionPlanner.h"
#include "convert/probe/Codecs.h"
#include "convert/probe/Input.h"
#include "support/Containers.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace kestrel {

namespace {

/// What sound of a codec is encoded in so that it stays as it is: only its own files keep the end
/// of TTA.
AVCodecID keptIn(const AVOutputFormat& container, AVCodecID codec) {
  return codec == AV_CODEC_ID_TTA && !keepsTta(container) ? AV_CODEC_ID_FLAC : codec;
}

}  // namespace

OpenPart::OpenPart(const JoinPart& part) : part_(part) {
  openSource(*part.source, part.input.path, part.source->interrupt());
}

ConversionSettings conversionLike(const JoinSettings& join) {
  const JoinEncoding& encoding = join.format;
  return {.input = join.inputs.front().path,
          .output = join.output,
          .videoCodec = encoding.videoCodec,
          .width = encoding.width,
          .height = encoding.height,
          .lines = encoding.lines,
          .scale = encoding.scale,
          .fps = encoding.fps,
          .aspect = encoding.aspect,
          .crf = encoding.crf,
          .videoBitrate = encoding.videoBitrate,
          .encoderPreset = encoding.encoderPreset,
          .videoOptions = encoding.videoOptions,
          .audio = StreamAction::kEncode,
          .audioCodec = encoding.audioCodec,
          .audioBitrate = encoding.audioBitrate,
          .sampleRate = encoding.sampleRate,
          .channelLayout = encoding.channelLayout,
          .audioOptions = encoding.audioOptions};
}

JoinFormat formatOfJoin(const JoinSettings& settings, const JoinPart& first, bool keepsCodecs) {
  ConversionSettings format = conversionLike(settings);
  const AVOutputFormat& container = outputFormatFor(settings.output);
  const auto own = [&](std::string& name, uint32_t stream) {
    const AVCodecID codec = keptIn(container, first.outline->streams[stream]->codecpar->codec_id);
    // A file of bare packets is one codec's alone.
    const bool isOthers =
        (container.flags & AVFMT_NOTIMESTAMPS) != 0 && codec != container.audio_codec;
    if (isOthers) return;
    const bool isPossible = avcodec_find_encoder(codec) && isKnownToHold(container, codec);
    if (name.empty() && keepsCodecs && isPossible) name = avcodec_get_name(codec);
  };
  if (first.video) own(format.videoCodec, *first.video);
  if (!first.audios.empty()) own(format.audioCodec, first.audios.front());
  ConversionPlan plan = planConversion(format, OpenPart(first).source(), {.info = first.info});
  plan.keepsTimes = false;  // the parts follow each other at one rate
  return {std::move(format), std::move(plan)};
}

}  // namespace kestrel
