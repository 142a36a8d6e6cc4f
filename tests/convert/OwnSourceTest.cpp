#include <gtest/gtest.h>
#include <kestrel/LMWavSource.h>
#include <kestrel/MemorySource.h>
#include <kestrel/convert/Conversion.h>
#include <kestrel/convert/Failure.h>
#include <kestrel/convert/Pictures.h>
#include <kestrel/convert/Scenes.h>
#include <kestrel/convert/Sound.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/FileBytes.h"
#include "tests/support/Fixture.h"
#include "tests/support/Peer.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

std::shared_ptr<LMMediaSource> inMemory(const std::string& path) {
  const auto bytes = readBytes(path);
  return std::make_shared<MemorySource>(
      std::make_shared<const std::vector<uint8_t>>(bytes.begin(), bytes.end()));
}

ConversionSettings settingsFor(const std::string& output) {
  ConversionSettings settings{.output = output};
  settings.width = 32;
  settings.height = 24;
  settings.passes = 2;
  settings.videoBitrate = 100'000;
  return settings;
}

TEST(OwnSource, ConvertsLikeAFile) {
  const TempDir folder;
  const std::string path = fixture("av25.mp4").string();
  ConversionSettings own = settingsFor((folder.path() / "own.mkv").string());
  own.source = inMemory(path);
  EXPECT_TRUE(Conversion(own).run().isWhole());
  ConversionSettings file = settingsFor((folder.path() / "file.mkv").string());
  file.input = path;
  EXPECT_TRUE(Conversion(file).run().isWhole());
  const auto hash = [](const std::string& name) {
    return runPeer({"ffmpeg", "-v", "error", "-i", name, "-map", "0", "-f", "framehash", "-"}).out;
  };
  EXPECT_EQ(hash(own.output), hash(file.output));
}

TEST(OwnSource, HasPicturesSoundAndScenes) {
  const std::string path = fixture("av25.mp4").string();
  const auto source = inMemory(path);
  const auto own = Pictures({.source = source}).pictureAt(500'000);
  const auto file = Pictures({.input = path}).pictureAt(500'000);
  ASSERT_EQ(own->height(), file->height());
  for (int y = 0; y < own->height(); ++y)
    EXPECT_TRUE(std::equal(own->row(y), own->row(y) + 4 * own->width(), file->row(y)));
  EXPECT_EQ(findScenes({.source = source}).scenes, findScenes({.input = path}).scenes);
}

/// Samples that a program computes: a ramp.
class Ramp : public LMWavSource {
 public:
  std::shared_ptr<LMMediaSource> copy() const override { return std::make_shared<Ramp>(); }
  int64_t datasize() const override { return int64_t{44100} * 8; }
  int32_t readData(uint8_t* data, int64_t offset, int32_t size) override {
    const int64_t first = std::max<int64_t>(offset - headerSize(), 0);
    for (int32_t i = 0; i < size; ++i) {
      const int64_t at = first + i;
      const float sample = static_cast<float>(at / 8) / 44100;
      data[i] = reinterpret_cast<const uint8_t*>(&sample)[at % 4];
    }
    return size;
  }
};

TEST(OwnSource, OfSamplesThatAProgramComputesIsHeard) {
  Sound sound({.source = std::make_shared<Ramp>()});
  sound.seek(250'000);
  std::vector<float> samples(200);
  ASSERT_EQ(sound.read(samples.data(), 100), 100);
  for (int i = 0; i < 100; ++i) {
    const float expected = static_cast<float>(11025 + i) / 44100;
    EXPECT_FLOAT_EQ(samples[static_cast<size_t>(2 * i)], expected);
    EXPECT_FLOAT_EQ(samples[static_cast<size_t>(2 * i + 1)], expected);
  }
}

TEST(OwnSource, IsNamedInFailuresAndHasNoTitles) {
  const auto nothing = MemorySource::fromText("nothing of the kind");
  try {
    Pictures pictures({.input = "upload 7", .source = nothing});
    FAIL();
  } catch (const Failure& failure) {
    EXPECT_NE(std::string(failure.what()).find("'upload 7'"), std::string::npos);
  }
  try {
    Sound sound({.source = nothing, .title = 1});
    FAIL();
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.subject(), "title");
  }
}

}  // namespace
}  // namespace kestrel::test
