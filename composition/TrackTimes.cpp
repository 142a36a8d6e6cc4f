#include "composition/TrackTimes.h"

#include <kestrel/LMMediaSource.h>

#include <algorithm>

#include "support/Containers.h"

namespace kestrel {

int64_t inMicroseconds(int64_t time, AVRational base) {
  return av_rescale_q(time, base, kMicroseconds);
}

int64_t usualDuration(const AVStream& stream) {
  const AVRational rate = stream.avg_frame_rate;
  if (rate.num > 0 && rate.den > 0) return av_rescale(1000000, rate.den, rate.num);
  const AVCodecParameters& parameters = *stream.codecpar;
  if (parameters.frame_size > 0 && parameters.sample_rate > 0)
    return av_rescale(parameters.frame_size, 1000000, parameters.sample_rate);
  return 25000;
}

int64_t displayDelay(const AVStream& stream) {
  return std::max(stream.codecpar->video_delay, 0) * usualDuration(stream);
}

int64_t startOf(LMMovieCompositionTrack& track) {
  const AVStream& stream = *track.avstream();
  return stream.start_time != AV_NOPTS_VALUE ? inMicroseconds(stream.start_time, stream.time_base)
                                             : track.source()->start_time();
}

int64_t statedEnd(const AVStream& stream) {
  if (const auto end = taggedEnd(stream)) return *end;
  const bool isStated = stream.duration != AV_NOPTS_VALUE && stream.start_time != AV_NOPTS_VALUE;
  return isStated
             ? inMicroseconds(av_sat_add64(stream.start_time, stream.duration), stream.time_base)
             : INT64_MAX;
}

}  // namespace kestrel
