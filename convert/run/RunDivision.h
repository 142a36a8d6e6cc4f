#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "convert/feed/PictureStretch.h"
#include "convert/probe/InputEnd.h"
#include "support/FFmpegOwners.h"

namespace kestrel {

/// Packets that an encoder has made before, in the order in which they are written.
class MadePackets {
 public:
  virtual ~MadePackets() = default;

  /// What they are packets of; theirs are its ticks.
  virtual const AVStream& stream() const = 0;

  /// Null behind the last. Throws `Failure`.
  virtual PacketPtr next() = 0;

  /// How much of the input they were made of, microseconds after the conversion's start.
  virtual int64_t end() const = 0;
};

/// How a run carries out a part of a conversion that is divided, or puts the parts together. All
/// members may be empty.
struct RunDivision {
  /// An encoded stream by its place in the plan.
  struct Stream {
    size_t place = 0;
    const AVStream* stream = nullptr;
  };

  /// When the conversion begins, where what the plan says was found to be too late; microseconds.
  std::optional<int64_t> start = {};

  // Of a part: its packets are handed out, on the encoding thread, and no file is written.
  std::optional<PictureStretch> stretch = {};  ///< of the pictures; absent: all of them
  std::function<void(const std::vector<Stream>& streams)> begin = {};
  std::function<void(const AVPacket& packet, const AVStream& stream)> take = {};

  // Of the whole: what streams that are encoded are made of, and what was found on the way there.
  std::function<std::unique_ptr<MadePackets>(size_t place)> made = {};
  std::function<InputEnd()> faults = {};
  std::function<void(const std::string& path)> isOpen = {};   ///< told where the whole is written
  std::function<void(const std::string& path)> isWhole = {};  ///< and before it gets its name
};

}  // namespace kestrel
