#include "convert/check/Findings.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <utility>

namespace kestrel {

namespace {

/// Events so near to each other are one; microseconds.
constexpr int64_t kNear = 1'000'000;

}  // namespace

std::vector<CheckFinding> Findings::take() {
  std::ranges::stable_sort(all_, {}, &CheckFinding::start);
  return std::move(all_);
}

LastingState::LastingState(CheckKind kind, uint32_t stream, double leastSeconds,
                           std::string sentence)
    : kind_(kind),
      stream_(stream),
      least_(std::llround(leastSeconds * 1e6)),
      sentence_(std::move(sentence)) {}

void LastingState::set(bool holds, int64_t time, Findings& findings) {
  if (holds && !since_) since_ = time;
  if (holds || !since_) return;
  if (time - *since_ >= least_)
    findings.add({.kind = kind_,
                  .stream = stream_,
                  .start = *since_,
                  .end = time,
                  .isFault = false,
                  .sentence = sentence_});
  since_.reset();
}

Incidents::Incidents(CheckKind kind, uint32_t stream, std::string what, std::string sentence)
    : kind_(kind), stream_(stream), what_(std::move(what)), sentence_(std::move(sentence)) {}

void Incidents::add(int64_t start, int64_t end, int64_t count, Findings& findings) {
  if (count <= 0) return;
  if (count_ > 0 && start - end_ > kNear) finish(findings);
  if (count_ == 0) start_ = end_ = start;
  start_ = std::min(start_, start);
  end_ = std::max(end_, end);
  count_ += count;
  whole_ += count;
}

void Incidents::finish(Findings& findings) {
  if (count_ == 0) return;
  findings.add(
      {.kind = kind_,
       .stream = stream_,
       .start = start_,
       .end = end_,
       .sentence = fmt::format("{} {}{} {}", count_, what_, count_ == 1 ? "" : "s", sentence_)});
  count_ = 0;
}

}  // namespace kestrel
