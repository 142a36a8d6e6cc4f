#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/Ffprobe.h"
#include "tests/support/Process.h"

namespace kestrel::test {

using Sound = std::vector<float>;  // stereo, interleaved

inline constexpr int64_t kRate = 44100;

/// All samples that ffmpeg decodes, one packet behind the other, as they are in stereo.
inline Sound decoded(const std::filesystem::path& file) {
  const RunResult result = run({"ffmpeg", "-v", "error", "-nostdin", "-i", file.string(), "-map",
                                "0:a:0", "-ac", "2", "-f", "f32le", "-"});
  if (result.status != 0) throw std::runtime_error(result.err);
  Sound sound(result.out.size() / sizeof(float));
  std::memcpy(sound.data(), result.out.data(), sound.size() * sizeof(float));
  return sound;
}

/// What is to be heard of a file of 16-bit stereo at the movie's rate, whose clock counts samples:
/// each packet's samples at their place from the file's start on, silence elsewhere.
inline Sound expectedSound(const std::filesystem::path& file) {
  const auto json = ffprobeJson(
      file, {"-select_streams", "a:0", "-show_packets", "-show_format", "-show_streams"});
  EXPECT_EQ(json.at("streams")[0].at("time_base"), "1/44100");
  const auto begin = static_cast<int64_t>(
      std::llround(std::stod(json.at("format").at("start_time").get<std::string>()) * kRate));
  const Sound samples = decoded(file);
  Sound sound;
  size_t read = 0;
  for (const auto& packet : json.at("packets")) {
    const size_t count = std::stoul(packet.at("size").get<std::string>()) / 2;
    const auto place = static_cast<size_t>((packet.at("pts").get<int64_t>() - begin) * 2);
    sound.resize(std::max(sound.size(), place + count));
    std::copy_n(samples.begin() + static_cast<ptrdiff_t>(read), count,
                sound.begin() + static_cast<ptrdiff_t>(place));
    read += count;
  }
  EXPECT_EQ(read, samples.size());
  return sound;
}

/// Where two sounds differ first, in frames; -1 nowhere.
inline int64_t firstDifference(const Sound& a, const Sound& b) {
  const auto [at, unused] = std::mismatch(a.begin(), a.end(), b.begin(), b.end());
  if (at == a.end() && a.size() == b.size()) return -1;
  return (at - a.begin()) / 2;
}

}  // namespace kestrel::test
