#pragma once

#include <gtest/gtest.h>
#include <kestrel/LMFFMedia.h>
#include <kestrel/LMFFMediaStream.h>
#include <kestrel/LMMediaSource.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "support/FFmpegOwners.h"
#include "tests/support/Ffprobe.h"
#include "tests/support/Fixture.h"
#include "tests/support/ForcedCpuCount.h"
#include "tests/support/Pictures.h"

namespace kestrel::test {

inline constexpr int64_t kSecond = 1000000;

inline int64_t milliseconds(int64_t count) { return count * 1000; }

inline std::shared_ptr<LMMediaSource> sourceOf(const std::filesystem::path& file) {
  return LMMediaSource::mediaWithPath(file.string());
}

/// An opened media over all streams of a file, or over some of them.
inline std::shared_ptr<LMFFMedia> openedMedia(const std::filesystem::path& file,
                                              std::optional<IndexSet> streams = std::nullopt) {
  auto media = std::make_shared<LMFFMedia>();
  media->setSource(sourceOf(file));
  media->setSelectStreams(std::move(streams));
  media->open();
  return media;
}

/// The media of a file's pictures, and that of its sound, as a source makes them.
inline std::shared_ptr<LMFFMedia> videoMediaOf(const std::filesystem::path& file) {
  const auto medias = sourceOf(file)->createMedias();
  return medias.empty() ? nullptr : medias.front();
}
inline std::shared_ptr<LMFFMedia> audioMediaOf(const std::filesystem::path& file) {
  const auto medias = sourceOf(file)->createMedias();
  return medias.empty() ? nullptr : medias.back();
}

/// The number of samples per channel that ffmpeg decodes from an audio stream.
int64_t sampleCountOf(const std::filesystem::path& file, int audioStream = 0);

/// The middle of each picture's time, to ask the media for, microseconds: a place that belongs to
/// this one picture beyond doubt. `times` are the pictures' own, in the stream's time base.
std::vector<int64_t> middlesOf(const LMFFMedia& media, const std::vector<int64_t>& times);

/// `frame` samples per channel of silence to mix into.
inline std::vector<float> silence(int32_t frame) {
  return std::vector<float>(static_cast<size_t>(frame) * 2, 0.0F);
}

}  // namespace kestrel::test
