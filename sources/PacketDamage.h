#pragma once

#include <cstdint>
#include <map>

struct AVPacket;
struct AVStream;

namespace kestrel {

/// Counts packets of which a container says that parts were lost or came wrong, as transport
/// streams do by counting what they send.
///
/// Files that were laid end to end count anew at each seam, where nothing is missing: pictures go
/// on with a key picture there, and sound without a hole. Such packets are not counted, and neither
/// is the last of a stream, which a recording that was stopped cuts off.
class PacketDamage {
 public:
  /// Takes each packet as the demuxer returns it.
  void take(const AVPacket& packet, const AVStream& stream);

  /// What follows is read from elsewhere.
  void jump();

  /// How many of a stream's packets were damaged.
  int64_t of(int stream) const;

 private:
  struct Course {
    int64_t counted = 0;
    bool isPictures = false;
    int64_t open = 0;          // marked packets that others behind them decide about
    int since = 0;             // pictures behind the last of these
    int64_t next = INT64_MIN;  // of sound, when the next packet is expected, ticks
  };

  static void takePicture(Course& course, const AVPacket& packet);
  static void takeSound(Course& course, const AVPacket& packet, const AVStream& stream);

  std::map<int, Course> courses_;  // by stream
};

}  // namespace kestrel
