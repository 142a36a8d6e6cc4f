#pragma once

namespace kestrel::test {

/// While it lives, the libraries take the machine for one with so many processors.
class ForcedCpuCount {
 public:
  explicit ForcedCpuCount(int count);
  ~ForcedCpuCount();
  ForcedCpuCount(const ForcedCpuCount&) = delete;
  ForcedCpuCount& operator=(const ForcedCpuCount&) = delete;
};

}  // namespace kestrel::test
