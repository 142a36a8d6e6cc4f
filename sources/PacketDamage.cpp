#include "sources/PacketDamage.h"

#include <algorithm>

#include "support/FFmpegOwners.h"

extern "C" {
#include <libavformat/avformat.h>
}

namespace kestrel {

namespace {

/// A hole in sound that is longer is another recording's beginning; seconds.
constexpr int64_t kLongestHole = 10;

/// Whether sound is missing between when a packet was expected and when it comes.
bool isHole(int64_t expected, int64_t time, const AVPacket& packet, const AVStream& stream) {
  if (expected == AV_NOPTS_VALUE || time == AV_NOPTS_VALUE) return false;
  const int64_t longest = av_rescale_q(kLongestHole, {1, 1}, stream.time_base);
  const int64_t hole = time - expected;
  return hole > packet.duration / 2 && hole < longest;
}

}  // namespace

/// A piece of a stream is put together with the one behind it before its mark is handed out: it is
/// the picture before the damaged one that bears it, and the one behind that decides.
void PacketDamage::takePicture(Course& course, const AVPacket& packet) {
  if (packet.flags & AV_PKT_FLAG_CORRUPT) {
    ++course.open;
    course.since = 0;
    return;
  }
  if (course.open == 0 || ++course.since < 2) return;
  const bool isSeam = course.open == 1 && (packet.flags & AV_PKT_FLAG_KEY) != 0;
  if (!isSeam) course.counted += course.open;
  course.open = 0;
}

void PacketDamage::takeSound(Course& course, const AVPacket& packet, const AVStream& stream) {
  const bool isDamaged = (packet.flags & AV_PKT_FLAG_CORRUPT) != 0;
  const int64_t time = packet.dts == AV_NOPTS_VALUE ? packet.pts : packet.dts;
  // Packets that came in one piece, of which only the first has a place, share their damage.
  if (course.open > 0 && (!isDamaged || packet.pos >= 0)) {
    if (isHole(course.next, time, packet, stream)) course.counted += course.open;
    course.open = 0;
  }
  if (isDamaged) ++course.open;
  course.next = time == AV_NOPTS_VALUE ? time : time + packet.duration;
}

void PacketDamage::take(const AVPacket& packet, const AVStream& stream) {
  const AVMediaType type = stream.codecpar->codec_type;
  if (type != AVMEDIA_TYPE_VIDEO && type != AVMEDIA_TYPE_AUDIO) return;
  Course& course = courses_[packet.stream_index];
  course.isPictures = type == AVMEDIA_TYPE_VIDEO;
  if (course.isPictures)
    takePicture(course, packet);
  else
    takeSound(course, packet, stream);
}

void PacketDamage::jump() {
  for (auto& [stream, course] : courses_)
    course = {.counted = course.counted, .isPictures = course.isPictures};
}

int64_t PacketDamage::of(int stream) const {
  const auto found = courses_.find(stream);
  if (found == courses_.end()) return 0;
  const Course& course = found->second;
  // Of several at the end, whoever stopped recording has cut the last.
  const int64_t atEnd = course.isPictures ? std::max<int64_t>(course.open - 1, 0) : 0;
  return course.counted + atEnd;
}

}  // namespace kestrel
