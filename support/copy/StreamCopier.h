#pragma once

#include <kestrel/Error.h>

#include <cstdint>
#include <deque>
#include <optional>

#include "support/copy/DecodingTimes.h"
#include "support/copy/DisplayTimes.h"
#include "support/copy/HiddenPictures.h"

namespace kestrel {

/// The way of one stream into a container without being encoded. What the container wants to know
/// of the stream comes from the input; its packets pass through here, and come out in the form and
/// with the time stamps that the container takes.
class StreamCopier {
 public:
  /// Describes `output`, a new stream of a container that has not been started, like `input`, whose
  /// packets will come. Both streams outlive the copier. The output's codec tag stays 0 until
  /// `settle`.
  StreamCopier(const AVStream& input, AVStream& output, const AVOutputFormat& container);

  AVStream* stream() const { return &output_; }

  /// Why the stream cannot be copied as it should be.
  const Error& error() const { return hidden_ && hidden_->error() ? hidden_->error() : error_; }

  /// Says that several inputs follow each other, so that what the codec data tell of the first
  /// one's content is not true of the whole.
  void describeSeveral();

  /// What is settled just before the container's header is written, which may then change the
  /// stream's time base. The codec tag is the input's where the container understands it as the
  /// same codec, for some codecs tell their kind by nothing else. Where the container counts in
  /// pictures, the time base is a picture's duration, or some of a picture's.
  void settle();

  /// Says that the packets of another input follow, whose stream fits the first one.
  void beginInput(const AVStream& input);

  /// Takes a packet, stamped in the output stream's time base; a negative code when there is no
  /// memory for it. A packet that cannot be rewritten, because its bits are damaged, is left out
  /// and counted.
  int push(PacketPtr packet);

  /// Says that no packet follows: what is held back then leaves. Answers why packets were left out,
  /// a negative code, where all of them were; otherwise 0.
  int finish();

  /// How many packets were left out.
  int64_t refused() const { return refused_; }

  /// How many pictures were encoded anew, because the container can't hide those that they need.
  int64_t encoded() const { return hidden_ ? hidden_->encoded() : 0; }

  /// The next packet that is ready, null when there is none.
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

  AVStream& output_;
  const AVOutputFormat& container_;
  const uint32_t tag_;  // the input's
  DecodingTimes decoding_;
  BitstreamFilterPtr filter_;
  ParametersPtr parameters_;  // of the packets behind the filter
  std::optional<HiddenPictures> hidden_;
  bool hasShown_ = false;
  std::optional<DisplayTimes> display_;
  std::deque<PacketPtr> ready_;
  int64_t refused_ = 0;
  int refusal_ = 0;  // why the last one was left out
  bool hasDelivered_ = false;
  int64_t last_ = AV_NOPTS_VALUE;  // decoding time of the newest packet that was ready
  Error error_;
};

/// Whether a container stores pictures by their order alone, without the times at which they are
/// shown.
bool storesOnlyOrder(const AVOutputFormat& container);

/// Whether a container can hold pictures that are decoded and not shown, where they come first.
bool hidesFirstPictures(const AVOutputFormat& container);

}  // namespace kestrel
