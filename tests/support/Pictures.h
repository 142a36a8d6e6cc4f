#pragma once

#include <cstdint>
#include <filesystem>
#include <vector>

struct AVFrame;

namespace kestrel::test {

/// The times of the first video stream's pictures in their order of display, in the stream's time
/// base, as ffprobe decodes them.
std::vector<int64_t> pictureTimesOf(const std::filesystem::path& file);

/// A checksum of every picture of the first video stream, in their order of display, as ffmpeg
/// decodes them; `threads` of its decoder, 0 for as many as it likes.
std::vector<uint32_t> pictureSumsOf(const std::filesystem::path& file, int threads = 0);

/// The same checksum of one picture.
uint32_t pictureSum(const AVFrame& frame);

/// A picture as ffmpeg and ffprobe see it, and when it is shown: seconds after the file's start.
struct TimedPicture {
  uint32_t sum = 0;
  double start = 0;
  double end = 0;  ///< the start of the next one, or what the last one says
};

/// All of the first video stream, in their order of display.
std::vector<TimedPicture> timedPicturesOf(const std::filesystem::path& file);

}  // namespace kestrel::test
