#include "platform/process/HelperPath.h"

#include <gtest/gtest.h>
#include <kestrel/Bundle.h>

#include <filesystem>
#include <fstream>

namespace kestrel {
namespace {

namespace fs = std::filesystem;

// That an installed library finds its own helpers is seen where the tree is installed.
TEST(HelperPath, IsBesideTheProgram) {
  const std::string beside = Bundle::mainBundle().siblingPath("HelperPathTestHelper");
  EXPECT_EQ(helperPath("HelperPathTestHelper"), beside);
  std::ofstream(beside) << "#!/bin/sh\n";
  EXPECT_EQ(helperPath("HelperPathTestHelper"), beside);
  fs::remove(beside);
}

}  // namespace
}  // namespace kestrel
