#include "convert/probe/PictureTimes.h"

#include <kestrel/LMMediaSource.h>

#include <algorithm>

#include "convert/probe/Streams.h"
#include "support/FFmpegOwners.h"

extern "C" {
#include <libavformat/avformat.h>
}

namespace kestrel {

std::vector<TimedPicture> timedPictures(LMMediaSource& source) {
  AVFormatContext& input = *source.formatContext();
  const auto video = mainVideo(input);
  if (!video) return {};
  for (unsigned i = 0; i < input.nb_streams; ++i)
    if (i != *video) input.streams[i]->discard = AVDISCARD_ALL;
  source.fillInTimes();
  const AVRational base = input.streams[*video]->time_base;
  std::vector<TimedPicture> pictures;
  const PacketPtr packet = makePacket();
  while (packet && source.readPacket(packet.get())) {
    const bool isShown = packet->stream_index == static_cast<int>(*video) &&
                         (packet->flags & AV_PKT_FLAG_DISCARD) == 0;
    const int64_t time = packet->pts;
    const bool isKey = (packet->flags & AV_PKT_FLAG_KEY) != 0;
    av_packet_unref(packet.get());
    if (!isShown) continue;
    if (time == AV_NOPTS_VALUE) return {};
    pictures.push_back({av_rescale_q(time, base, kMicroseconds), isKey});
  }
  std::ranges::sort(pictures, {}, &TimedPicture::time);
  return pictures;
}

std::vector<int64_t> pictureTimes(LMMediaSource& source) {
  std::vector<int64_t> times;
  for (const TimedPicture& picture : timedPictures(source)) times.push_back(picture.time);
  return times;
}

}  // namespace kestrel
