#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kestrel {

/// What one of Slurm's programs answers; throws a `Failure` for what it complains of.
std::string slurmAnswer(const std::vector<std::string>& command);

/// Asks Slurm again and again how what was submitted stands.
class SlurmQueue {
 public:
  /// How long Slurm may be out of reach: its controller may be started again meanwhile.
  static constexpr std::chrono::milliseconds kPatience = std::chrono::minutes(10);

  explicit SlurmQueue(std::vector<std::string> ids, std::chrono::milliseconds patience = kPatience)
      : ids_(std::move(ids)), patience_(patience) {}

  /// Whether any of it waits or runs. What Slurm has forgotten does not; where Slurm cannot be
  /// asked, it is taken to. Throws a `Failure` once that has lasted.
  bool isBusy();

 private:
  const std::vector<std::string> ids_;
  const std::chrono::milliseconds patience_;
  std::optional<std::chrono::steady_clock::time_point> silentSince_ = {};
};

/// "4711,4712".
std::string joinedIds(const std::vector<std::string>& ids);

}  // namespace kestrel
