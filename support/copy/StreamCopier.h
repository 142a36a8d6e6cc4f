#pragma once

#include <kestrel/Error.h>

#include <cstdint>
#include <deque>
#include <optional>

#include "support/copy/DecodingTimes.h"
#include "support/copy/DisplayTimes.h"
#include "support/copy/FlacNumbers.h"
#include "support/copy/HiddenPictures.h"

namespace kestrel {

/// Copies one stream to a container without encoding it. Describes the stream to the container like
/// the input's, and passes packets on in the form and with the time stamps that the container
/// requires.
class StreamCopier {
 public:
  /// Describes `output`, a new stream of a container that has not been started, like `input`. Both
  /// streams outlive the copier. The output's codec tag stays 0 until `settle`.
  StreamCopier(const AVStream& input, AVStream& output, const AVOutputFormat& container);

  AVStream* stream() const { return &output_; }

  /// Why the stream cannot be copied properly.
  const Error& error() const { return hidden_ && hidden_->error() ? hidden_->error() : error_; }

  /// Several inputs will follow each other: removes codec data that only describes the content of
  /// the first. What describes all of them is given to the container at the end.
  void describeSeveral();

  /// Call just before the container's header is written, which may change the stream's time base.
  /// Sets the codec tag to the input's if the container uses it for the same codec, because some
  /// codec variants are only known by their tag. If the container counts pictures, sets the time
  /// base to the duration of a picture or a fraction of it.
  void settle();

  /// The next packets come from another input with a compatible stream.
  void beginInput(const AVStream& input);

  /// Takes a packet stamped in the output stream's time base; returns a negative code if memory
  /// runs out. Packets that are too damaged to be rewritten are dropped and counted.
  int push(PacketPtr packet);

  /// Signals that no packet follows; releases what is held back. Returns the negative code of the
  /// last dropped packet if all packets were dropped, otherwise 0.
  int finish();

  /// The number of dropped packets.
  int64_t refused() const { return refused_; }

  /// The number of pictures re-encoded because the container cannot hide those that they need.
  int64_t encoded() const { return hidden_ ? hidden_->encoded() : 0; }

  /// The next packet that is ready; null if there is none.
  PacketPtr pop();

 private:
  void describe(const AVStream& input);
  void openFilter(const char* name);
  int filterTimed();
  int send(AVPacket* packet);
  int receive();
  void show(PacketPtr packet);
  void takeShown();
  void display(PacketPtr packet);
  void takeDisplayed();
  void deliver(PacketPtr packet);
  void describeAll();

  AVStream& output_;
  const AVOutputFormat& container_;
  const uint32_t tag_;  // the input's
  DecodingTimes decoding_;
  BitstreamFilterPtr filter_;
  ParametersPtr parameters_;  // of the packets after the filter
  std::optional<HiddenPictures> hidden_;
  std::optional<FlacNumbers> flac_;  // of FLAC that comes from several inputs
  bool hasShown_ = false;
  std::optional<DisplayTimes> display_;
  std::deque<PacketPtr> ready_;
  int64_t refused_ = 0;
  int refusal_ = 0;  // why the last packet was dropped
  bool hasDelivered_ = false;
  int64_t last_ = AV_NOPTS_VALUE;  // decoding time of the latest packet that was ready
  Error error_;
};

/// True if a container stores only the order of pictures, without presentation times.
bool storesOnlyOrder(const AVOutputFormat& container);

/// True if a container can hide pictures at the start of a stream.
bool hidesFirstPictures(const AVOutputFormat& container);

}  // namespace kestrel
