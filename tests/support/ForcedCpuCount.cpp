#include "tests/support/ForcedCpuCount.h"

extern "C" {
#include <libavutil/cpu.h>
}

namespace kestrel::test {

ForcedCpuCount::ForcedCpuCount(int count) { av_cpu_force_count(count); }

ForcedCpuCount::~ForcedCpuCount() { av_cpu_force_count(0); }

}  // namespace kestrel::test
