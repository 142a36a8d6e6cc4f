#pragma once

#include <cstdint>
#include <memory>

#include "convert/feed/Tracks.h"
#include "convert/run/RunDivision.h"

namespace kestrel {

/// A stream whose packets have been made before: they go into the output as their encoder would
/// have brought them.
class MadeTrack : public Track {
 public:
  /// `output`: the stream that they are written to.
  MadeTrack(std::unique_ptr<MadePackets> packets, AVStream* output);

  int64_t time() const override { return time_; }
  Job step() override;
  int64_t end() const override { return packets_->end(); }

 private:
  void readNext();

  const std::unique_ptr<MadePackets> packets_;
  AVStream* const output_;
  std::shared_ptr<AVPacket> next_;
  int64_t time_ = 0;
};

}  // namespace kestrel
