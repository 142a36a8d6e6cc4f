#include "platform/process/LoadedLibrary.h"

#include <gtest/gtest.h>

namespace kestrel {
namespace {

TEST(LoadedLibrary, FindsFunctions) {
  LoadedLibrary library("libz.so.1");
  const char* (*version)() = nullptr;
  library.find(version, "zlibVersion");
  ASSERT_TRUE(version);
  EXPECT_EQ(version()[0], '1');
  EXPECT_TRUE(library.isWhole());
}

TEST(LoadedLibrary, TellsOfAFunctionThatIsMissing) {
  LoadedLibrary library("libz.so.1");
  void (*function)() = nullptr;
  library.find(function, "noSuchFunction");
  EXPECT_FALSE(function);
  EXPECT_FALSE(library.isWhole());
  library.find(function, "zlibVersion");
  EXPECT_TRUE(function);
  EXPECT_FALSE(library.isWhole());
}

TEST(LoadedLibrary, TellsOfALibraryThatIsMissing) {
  LoadedLibrary library("libnosuchlibrary.so.1");
  EXPECT_FALSE(library.isWhole());
  void (*function)() = nullptr;
  library.find(function, "zlibVersion");
  EXPECT_FALSE(function);
}

}  // namespace
}  // namespace kestrel
