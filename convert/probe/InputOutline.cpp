#include "convert/probe/InputOutline.h"

#include <new>

#include "support/FFmpegCompat.h"

namespace kestrel {

namespace {

void addStream(const AVStream& from, AVFormatContext& outline) {
  AVStream* to = avformat_new_stream(&outline, nullptr);
  if (!to || avcodec_parameters_copy(to->codecpar, from.codecpar) < 0) throw std::bad_alloc();
  to->id = from.id;
  to->time_base = from.time_base;
  to->start_time = from.start_time;
  to->duration = from.duration;
  to->nb_frames = from.nb_frames;
  to->disposition = from.disposition;
  to->discard = from.discard;
  to->sample_aspect_ratio = from.sample_aspect_ratio;
  to->avg_frame_rate = from.avg_frame_rate;
  to->r_frame_rate = from.r_frame_rate;
  av_dict_copy(&to->metadata, from.metadata, 0);
  copySideData(from, *to);
}

}  // namespace

std::shared_ptr<AVFormatContext> outlineOf(const AVFormatContext& input) {
  const std::shared_ptr<AVFormatContext> outline(avformat_alloc_context(), avformat_free_context);
  if (!outline) throw std::bad_alloc();
  outline->iformat = input.iformat;
  outline->start_time = input.start_time;
  outline->duration = input.duration;
  outline->duration_estimation_method = input.duration_estimation_method;
  av_dict_copy(&outline->metadata, input.metadata, 0);
  for (unsigned i = 0; i < input.nb_streams; ++i) addStream(*input.streams[i], *outline);
  return outline;
}

}  // namespace kestrel
