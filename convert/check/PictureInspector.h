#pragma once

#include <kestrel/convert/Check.h>

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "convert/check/Findings.h"
#include "platform/codec/CodecOwners.h"

struct AVFrame;
struct AVStream;

namespace kestrel {

/// Looks at the pictures of a stream: black, frozen, gaps, and whether marks say what is to be
/// seen.
///
/// Of a picture some thousand samples of luma are looked at, in a grid. Marks are judged at the
/// end, by all of them.
class PictureInspector {
 public:
  PictureInspector(const AVStream& stream, const CheckSettings& settings);

  /// A picture and its time, microseconds; in the order in which they are shown.
  void take(const AVFrame& frame, std::optional<int64_t> time, Findings& findings);

  void finish(Findings& findings);

  int64_t begin() const { return first_.value_or(0); }
  int64_t end() const { return end_; }
  int64_t pictures() const { return pictures_; }

 private:
  static constexpr int kLevels = 256;

  void followTimes(int64_t time, int64_t length, Findings& findings);
  void lookAtLuma(const AVFrame& frame, int64_t time, Findings& findings);
  void lookForCombs(const AVFrame& frame);
  void judgeFields(Findings& findings) const;
  void judgeRange(Findings& findings) const;
  void judgeLight(Findings& findings) const;
  void tell(CheckKind kind, std::string sentence, Findings& findings) const;

  const AVStream& stream_;
  const uint32_t index_;
  const int64_t usual_;  // how long a picture is shown
  LastingState black_;
  LastingState frozen_;
  std::vector<uint8_t> luma_;
  std::vector<uint8_t> still_;                // of the picture since which nothing changed
  std::array<int64_t, kLevels> levels_ = {};  // how often each was seen
  bool hasLevels_ = false;
  bool isFull_ = false;
  bool isMarked_ = false;  // which range it is
  FramePtr firstPicture_;
  FramePtr previous_;
  int told_ = 0;        // pictures in which enough moved to tell
  int combed_ = 0;      // those that show combs
  int64_t marked_ = 0;  // as interlaced
  int64_t pictures_ = 0;
  std::optional<int64_t> first_;
  int64_t last_ = 0;
  int64_t end_ = 0;
  int64_t step_ = 0;  // from one to the next, of late
};

}  // namespace kestrel
