#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "convert/job/PacketFile.h"
#include "convert/run/RunDivision.h"

namespace kestrel {

/// Parts of pictures, one behind the other, as one encoder would have made them: times for decoding
/// are counted over all of them, for each part's encoder knew of no other.
class PicturePackets : public MadePackets {
 public:
  /// `paths`: of the parts, in order. Reads all of them once, and throws a `Failure` for one that
  /// is not whole or does not fit the others. `faults` is told what was wrong with the input.
  PicturePackets(std::vector<std::string> paths, InputEnd& faults);

  const AVStream& stream() const override { return head_->stream(0); }
  PacketPtr next() override;
  int64_t end() const override { return end_; }

  int64_t count() const { return static_cast<int64_t>(times_.size()); }

 private:
  void look(const std::string& path, InputEnd& faults);
  int64_t decodingTime(size_t place) const;

  const std::vector<std::string> paths_;
  std::unique_ptr<PacketFileReader> head_;  // of the first
  std::unique_ptr<PacketFileReader> now_;
  size_t path_ = 0;             // the next
  std::vector<int64_t> times_;  // of all pictures, rising
  bool keepsTimes_ = true;      // pictures are decoded in the order in which they are shown
  size_t delay_ = 0;            // how many pictures those are ahead that are decoded
  size_t place_ = 0;
  int64_t end_ = 0;
};

/// One stream of the sound's part.
class SoundPackets : public MadePackets {
 public:
  /// `faults`: likewise.
  SoundPackets(const std::string& path, size_t stream, InputEnd& faults);

  const AVStream& stream() const override { return reader_.stream(stream_); }
  PacketPtr next() override;
  int64_t end() const override { return end_; }

 private:
  const size_t stream_;
  int64_t end_ = 0;
  PacketFileReader reader_;
};

}  // namespace kestrel
