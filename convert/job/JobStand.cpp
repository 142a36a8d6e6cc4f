#include "convert/job/JobStand.h"

#include <kestrel/convert/Failure.h>
#include <kestrel/convert/Text.h>

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

#include "convert/job/JobPlan.h"

namespace kestrel {

namespace {

std::string spanText(const JobPart& part) {
  return part.name == kSoundPart ? std::string("the sound")
                                 : fmt::format("the pictures from {} to {}", formatTime(part.start),
                                               formatTime(part.end));
}

}  // namespace

void requireMade(const JobStatus& status) {
  for (const JobPart& part : status.poison())
    throw Failure::input(
        status.input, fmt::format("{} of '{}' could not be converted: {}", spanText(part),
                                  status.input, part.problems.empty() ? "" : part.problems.back()));
  const auto missing = std::ranges::count_if(
      status.parts, [](const JobPart& part) { return part.state != JobPart::State::kDone; });
  if (missing > 0)
    throw Failure::input(status.input, fmt::format("{} of {} parts are still to be made", missing,
                                                   status.parts.size()));
}

Progress progressOf(const JobStatus& status) {
  Progress progress{.duration = 0.0};
  for (const JobPart& part : status.parts) {
    const bool counts = part.name != kSoundPart || status.parts.size() == 1;
    if (!counts) continue;
    *progress.duration += part.end - part.start;
    if (part.state == JobPart::State::kDone) progress.time += part.end - part.start;
  }
  return progress;
}

bool JobStatus::isWorkedOff() const {
  return std::ranges::all_of(parts, [](const JobPart& part) {
    return part.state == JobPart::State::kDone || part.state == JobPart::State::kPoison;
  });
}

std::vector<JobPart> JobStatus::poison() const {
  std::vector<JobPart> found;
  std::ranges::copy_if(parts, std::back_inserter(found),
                       [](const JobPart& part) { return part.state == JobPart::State::kPoison; });
  return found;
}

}  // namespace kestrel
