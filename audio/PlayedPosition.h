#pragma once

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <thread>

namespace kestrel {

/// Keeps account of the sound between the queue and the ear: how many frames have been taken out of
/// the queue and not been heard.
///
/// One thread plays and tells what happens; any other may ask. Nobody waits for a lock: who asks in
/// the middle of a change asks again. Positions count from the beginning of all playing.
class PlayedPosition {
 public:
  /// Around the taking of frames out of the queue, so that nobody who asks sees them in neither or
  /// in both places. `frames` is how many the chain was given, `taken` how many of them came out of
  /// the queue; the rest is silence.
  void beginTaking() { changes_.fetch_add(1); }
  void endTaking(int32_t frames, int64_t taken);

  /// The device has been given what it plays from `begin` to `end` (its time, nanoseconds), which
  /// the chain made of its input from one position to another.
  void noteRendered(int64_t begin, int64_t end, double inputBegin, double inputEnd);

  /// What has been taken so far is not waited for any more. To be called while the queue is empty,
  /// by the thread that fills it.
  void forget() { forgotten_.store(taken_.load()); }

  /// The frames that are taken and not heard at `now`, and those that `queued` answers, which is
  /// asked at the same moment.
  template <typename Queued>
  double unheard(int64_t now, Queued queued) const {
    for (;;) {
      const uint64_t before = changes_.load();
      const double count = static_cast<double>(queued()) + onTheWay(now);
      if (before % 2 == 0 && changes_.load() == before) return count;
      std::this_thread::yield();
    }
  }

 private:
  /// How many frames had been taken when the chain's input had got so far.
  struct Mark {
    double input = 0;
    int64_t taken = 0;
  };

  /// What the device was given in one call: when it is heard, and which frames these are. Times are
  /// nanoseconds, which a double tells apart for months of a machine's time.
  enum Member { kBegin, kEnd, kFirst, kLast };
  using Piece = std::array<std::atomic<double>, 4>;

  double takenAt(double input) const;
  static double heardOf(const Piece& piece, double now);
  double onTheWay(int64_t now) const;

  // Used by the playing thread alone.
  static constexpr uint64_t kMarks = 512;
  std::array<Mark, kMarks> marks_{};
  uint64_t markCount_ = 1;  // that ever were; the first one is all zeros

  std::atomic<uint64_t> changes_{0};  // odd during a change
  std::atomic<int64_t> taken_{0};
  std::atomic<int64_t> forgotten_{0};
  Piece current_{};
  Piece previous_{};
};

}  // namespace kestrel
