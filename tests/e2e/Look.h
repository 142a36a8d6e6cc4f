#pragma once

#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <string>

#include "tests/e2e/Decoded.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {

using Rgb = std::array<int, 3>;

/// A picture's pixels as R, G, B: the one at a time in seconds.
class Pixels {
 public:
  Pixels(const std::filesystem::path& file, double time, int width);

  Rgb at(int x, int y) const;
  int height() const { return static_cast<int>(bytes_.size()) / 3 / width_; }

  /// How many pixels of a row are brighter than half.
  int brightInRow(int y) const;
  int bright() const;

 private:
  int width_;
  std::string bytes_;
};

/// Small lossless inputs made by ffmpeg's sources, and conversions of them that lose next to
/// nothing.
class LookTest : public testing::Test {
 protected:
  std::filesystem::path made(const std::string& name, const std::string& graph,
                             const Arguments& options = {});

  std::filesystem::path converted(const std::filesystem::path& source, const Arguments& options,
                                  const std::string& name = "out.mkv");

  TempDir folder_;
};

}  // namespace kestrel::test
