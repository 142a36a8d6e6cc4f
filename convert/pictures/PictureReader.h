#pragma once

#include <kestrel/Image.h>
#include <kestrel/LMFFMedia.h>
#include <kestrel/LMFFMovie.h>

#include <cstdint>
#include <limits>
#include <memory>
#include <optional>

#include "convert/feed/HeldPicture.h"
#include "convert/feed/Rounding.h"

namespace kestrel {

/// Picks single pictures out of a movie: for each time exactly the one that a player shows then.
///
/// It seeks where that is the shorter way and decodes on from where it is otherwise, so that times
/// in rising order cost least. On the way there it leaves out the pictures that no other one needs.
///
/// It reads the movie's first video media; nobody else may read from that as long as this is used.
/// Times are microseconds on the movie's time line.
class PictureReader {
 public:
  explicit PictureReader(LMFFMovie& movie);
  ~PictureReader();
  PictureReader(const PictureReader&) = delete;
  PictureReader& operator=(const PictureReader&) = delete;

  /// The frame shown at a time; the first or the last one for times before or behind all others.
  /// None when none could be decoded. One that ends within a millisecond gives way to the next,
  /// so that a time in rounded milliseconds hits the picture that was meant.
  const HeldPicture& frameAt(int64_t time);

  /// The same with the look that the movie has and the subtitles of that time, in the size of the
  /// movie's output. Valid until the next call.
  std::shared_ptr<const Image> imageAt(int64_t time);

  /// The frame that follows the one answered last in order of display, at first the first one; none
  /// behind the last one.
  const HeldPicture& next();

  /// A frame with the look that the movie has, without subtitles. Valid until the next call.
  std::shared_ptr<const Image> drawn(const LMFFImage& frame);

  /// Where the last frame was found to end, when the input was read to its end.
  std::optional<int64_t> end() const { return end_; }

  /// The packets that could not be decoded on the way from the input's first key picture. What
  /// follows another is not counted: its packets may need others that were not read.
  int64_t refused() const;

 private:
  int64_t meant(int64_t time) const { return time + roundingOf(frameDuration_); }
  bool isNear(int64_t wanted) const;
  std::optional<int64_t> keyBefore(int64_t wanted) const;
  int64_t timeOffset() const;
  void seek(int64_t wanted, bool mayLeaveOut);
  bool readUpTo(int64_t wanted, bool mayLeaveOut);
  void noteSent();
  void leaveOut(bool leavesOut);
  int64_t framesAhead() const;

  LMFFMovie& movie_;
  std::shared_ptr<LMFFMedia> media_;
  std::shared_ptr<LMFFMediaStream> stream_;
  int64_t frameDuration_ = 0;
  bool canLeaveOut_ = false;

  HeldPicture newest_;
  int64_t sent_ = kNever;       // the latest time of a packet that the decoder was given
  int64_t wholeFrom_ = kNever;  // from here on every picture was decoded
  bool isLeavingOut_ = false;
  bool atEnd_ = false;
  std::optional<int64_t> end_;
  bool isFromFirst_ = false;   // it was last sought to the first key picture
  int64_t refused_ = 0;        // before that seek
  int64_t refusedAtSeek_ = 0;  // by what the stream counts

  static constexpr int64_t kNever = std::numeric_limits<int64_t>::min();
};

}  // namespace kestrel
