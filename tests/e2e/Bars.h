#pragma once

#include <array>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/e2e/Decoded.h"

namespace kestrel::test {

/// R, G, B of 255.
using Rgb = std::array<int, 3>;

/// What the fixtures `bars-….…` show: sixteen upright bars of equal width, the eight colours at
/// 75 %, then at 100 %.
const std::vector<Rgb>& barColors();

/// The colours in the middle of a picture's bars, seen by ffmpeg's own conversion through the named
/// matrix ("bt601", "bt709") and range ("tv", "pc").
std::vector<Rgb> barsSeenThrough(const std::filesystem::path& file, const std::string& matrix,
                                 const std::string& range);

/// The same through what the file's own tags say; throws where they do not say it.
std::vector<Rgb> barsAsTagged(const std::filesystem::path& file);

/// The largest difference of any component.
int worstDifference(const std::vector<Rgb>& a, const std::vector<Rgb>& b);

}  // namespace kestrel::test
