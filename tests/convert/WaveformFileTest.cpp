#include <gtest/gtest.h>
#include <kestrel/convert/Failure.h>
#include <kestrel/convert/WaveformFile.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>

#include "tests/support/FileBytes.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

using Form = WaveformFileSettings::Form;

TEST(WaveformFile, FormFollowsTheName) {
  EXPECT_EQ(waveformFormOf("a.json"), Form::kJson);
  EXPECT_EQ(waveformFormOf("folder.png/a.DAT"), Form::kData);
  EXPECT_EQ(waveformFormOf("a.json.png"), Form::kPicture);
  for (const std::string name : {"", "a", "a.wav", ".json"})
    EXPECT_THROW(waveformFormOf(name), Failure) << name;
}

// Two seconds of sound at 10 points a second, a least and a greatest sample for each.
TEST(WaveformFile, HoldsTheSoundFromEndToEnd) {
  const TempDir folder;
  const std::string output = (folder / "a.json").string();
  const Report report = writeWaveform({.input = fixture("av25.mp4").string(),
                                       .output = output,
                                       .form = waveformFormOf(output),
                                       .waveform = {.pointsPerSecond = 10}});
  EXPECT_TRUE(report.isWhole());
  std::ifstream file(output);
  const auto document = nlohmann::json::parse(file);
  EXPECT_NEAR(document.at("length").get<int>(), 20, 1);
  EXPECT_EQ(document.at("data").size(), 2 * document.at("length").get<size_t>());
}

TEST(WaveformFile, IsWrittenInTheFormAskedFor) {
  const TempDir folder;
  for (const auto& [name, beginning] :
       {std::pair{"a.json", "{\"version\":2,"}, {"a.dat", "\x02"}, {"a.png", "\x89PNG"}}) {
    const std::string output = (folder / name).string();
    writeWaveform(
        {.input = fixture("av25.mp4").string(), .output = output, .form = waveformFormOf(output)});
    EXPECT_TRUE(readBytes(output).starts_with(beginning)) << name;
  }
}

TEST(WaveformFile, InterruptedLeavesNothing) {
  const TempDir folder;
  const Report report =
      writeWaveform({.input = fixture("av25.mp4").string(), .output = (folder / "a.json").string()},
                    {.interrupt = [] { return true; }});
  EXPECT_EQ(report.outcome, Report::Outcome::kInterrupted);
  EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
}

}  // namespace
}  // namespace kestrel::test
