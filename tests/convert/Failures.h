#pragma once

#include <gtest/gtest.h>
#include <kestrel/convert/Failure.h>

namespace kestrel::test {

/// What a piece of work throws; the test fails where it throws nothing.
template <typename Work>
Failure failureOf(Work work) {
  try {
    work();
  } catch (const Failure& failure) {
    return failure;
  }
  ADD_FAILURE() << "nothing was thrown";
  return Failure::interrupted();
}

}  // namespace kestrel::test
