// For which instruction sets the kernels are compiled; included before Highway, once per source.
#pragma once

// Blocks of 128 bits are the kernels' unit, of which a vector has one, two or four: that leaves out
// vectors of one lane and vectors whose length is known only at run time.
#define HWY_DISABLED_TARGETS (HWY_SCALAR | HWY_SVE | HWY_SVE2 | HWY_SVE_256 | HWY_SVE2_128)

// The target without vector instructions is always compiled: machines without any use it, and tests
// hold the others to it. GCC before 12.3 needs its vectoriser off for that
// (platform/CMakeLists.txt).
#define HWY_COMPILE_ALL_ATTAINABLE
#define HWY_BROKEN_EMU128 0
