#include "audio/PlayedPosition.h"

namespace kestrel {

void PlayedPosition::endTaking(int32_t frames, int64_t taken) {
  const Mark& last = marks_[(markCount_ - 1) % kMarks];
  marks_[markCount_ % kMarks] = {last.input + frames, last.taken + taken};
  ++markCount_;
  taken_.store(last.taken + taken);
  changes_.fetch_add(1);
}

void PlayedPosition::noteRendered(int64_t begin, int64_t end, double inputBegin, double inputEnd) {
  changes_.fetch_add(1);
  for (size_t i = 0; i < previous_.size(); ++i) previous_[i].store(current_[i].load());
  current_[kBegin].store(static_cast<double>(begin));
  current_[kEnd].store(static_cast<double>(end));
  current_[kFirst].store(takenAt(inputBegin));
  current_[kLast].store(takenAt(inputEnd));
  changes_.fetch_add(1);
}

/// Between two marks the frames lie evenly.
double PlayedPosition::takenAt(double input) const {
  const uint64_t newest = markCount_ - 1;
  const uint64_t oldest = markCount_ > kMarks ? markCount_ - kMarks : 0;
  uint64_t i = newest;
  while (i > oldest && marks_[i % kMarks].input > input) --i;
  const Mark& before = marks_[i % kMarks];
  if (i == newest || before.input > input) return static_cast<double>(before.taken);
  const Mark& after = marks_[(i + 1) % kMarks];
  const double part = (input - before.input) / (after.input - before.input);
  return static_cast<double>(before.taken) + part * static_cast<double>(after.taken - before.taken);
}

double PlayedPosition::heardOf(const Piece& piece, double now) {
  const double begin = piece[kBegin].load();
  const double span = piece[kEnd].load() - begin;
  const double first = piece[kFirst].load();
  const double part = span > 0 ? std::clamp((now - begin) / span, 0.0, 1.0) : 1.0;
  return first + part * (piece[kLast].load() - first);
}

/// Before the newest piece begins to be heard, the one before it is.
double PlayedPosition::onTheWay(int64_t now) const {
  const auto time = static_cast<double>(now);
  const bool hasBegun = time >= current_[kBegin].load();
  const double heard = heardOf(hasBegun ? current_ : previous_, time);
  const auto taken = static_cast<double>(taken_.load());
  return std::max(taken - std::max(heard, static_cast<double>(forgotten_.load())), 0.0);
}

}  // namespace kestrel
