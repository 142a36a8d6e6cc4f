#pragma once

#include <kestrel/convert/Check.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kestrel {

/// Where inspectors of streams put what they find.
class Findings {
 public:
  void add(CheckFinding finding) { all_.push_back(std::move(finding)); }

  /// In order of time.
  std::vector<CheckFinding> take();

 private:
  std::vector<CheckFinding> all_;
};

/// A state that may last, such as silence: what is long enough is a finding. Microseconds.
class LastingState {
 public:
  LastingState(CheckKind kind, uint32_t stream, double leastSeconds, std::string sentence);

  /// Whether it holds from `time` on.
  void set(bool holds, int64_t time, Findings& findings);

  /// All ends at a time.
  void finish(int64_t time, Findings& findings) { set(false, time, findings); }

 private:
  const CheckKind kind_;
  const uint32_t stream_;
  const int64_t least_;
  const std::string sentence_;
  std::optional<int64_t> since_;
};

/// Single events, of which those that are near to each other are one finding.
class Incidents {
 public:
  /// `what`: what is counted, "packet"; `sentence`: what is said of them behind their number.
  Incidents(CheckKind kind, uint32_t stream, std::string what, std::string sentence);

  void add(int64_t start, int64_t end, int64_t count, Findings& findings);

  /// Tells the last of them, where there are at least so many.
  void finish(Findings& findings);

  int64_t count() const { return whole_; }

 private:
  const CheckKind kind_;
  const uint32_t stream_;
  const std::string what_;
  const std::string sentence_;
  int64_t start_ = 0;
  int64_t end_ = 0;
  int64_t count_ = 0;
  int64_t whole_ = 0;
};

}  // namespace kestrel
