#include <gtest/gtest.h>

#include <kestrel/convert/Conversion.h>
#include <kestrel/convert/MediaInfo.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "convert/run/ConversionRun.h"
#include "tests/sources/CustomSources.h"
#include "tests/support/Fixture.h"
#include "tests/support/Process.h"
#include "tests/support/TempDir.h"

extern "C" {
#include <libavutil/error.h>
}

namespace kestrel::test {
namespace {

/// Has nothing yet every other time that it is asked.
class LateSource : public ObservedSource {
 public:
  LateSource(MemorySource::Bytes bytes, std::shared_ptr<int> inVain)
      : ObservedSource(std::move(bytes)), inVain_(std::move(inVain)) {}

  std::shared_ptr<LMMediaSource> copy() const override {
    return std::make_shared<LateSource>(bytes(), inVain_);
  }

  int32_t read(uint8_t* buffer, int32_t size) override {
    isLate_ = !isLate_;
    if (!isLate_) return ObservedSource::read(buffer, std::min(size, 16384));
    ++*inVain_;
    return AVERROR(EAGAIN);
  }

 private:
  std::shared_ptr<int> inVain_;  // of all copies
  bool isLate_ = false;
};

/// All packets of a file with their times, as ffmpeg reads them.
std::string packetsIn(const std::filesystem::path& file) {
  return run({"ffmpeg", "-v", "error", "-i", file.string(), "-map", "0", "-c", "copy", "-f",
              "framemd5", "-"})
      .out;
}

class LateSourceTest : public testing::TestWithParam<const char*> {};

// The demuxer's "try again" is no end: what is made of such an input is what is made of the file.
TEST_P(LateSourceTest, GivesTheWholeConversion) {
  const TempDir folder;
  const auto input = fixture(GetParam());
  const auto prompt = folder / "prompt.mkv";
  const auto late = folder / "late.mkv";
  const ConversionSettings settings{
      .input = input.string(), .output = prompt.string(), .videoCodec = "mpeg4"};
  Conversion conversion(settings);
  const ConversionPlan plan = conversion.plan();
  ASSERT_TRUE(conversion.run().isWhole());

  const auto inVain = std::make_shared<int>(0);
  const auto source = std::make_shared<LateSource>(
      std::make_shared<const std::vector<uint8_t>>(contentOf(input)), inVain);
  source->open();
  ASSERT_TRUE(source->isOpen());
  ConversionRun run(settings, source, readMediaInfo(input.string()), plan,
                    ConversionRun::Part::kAll, {});
  run.write(late.string());
  EXPECT_GT(*inVain, 10);
  EXPECT_EQ(run.inputEnd().error.code, 0);
  const std::string packets = packetsIn(prompt);
  EXPECT_GT(std::ranges::count(packets, '\n'), 50);
  EXPECT_EQ(packetsIn(late), packets);
}

INSTANTIATE_TEST_SUITE_P(, LateSourceTest, testing::Values("av25.mp4", "av25.ts", "numbered25.mkv"),
                         [](const auto& tested) {
                           std::string name = tested.param;
                           std::ranges::replace(name, '.', '_');
                           return name;
                         });

}  // namespace
}  // namespace kestrel::test
