#include <gtest/gtest.h>
#include <kestrel/convert/Conversion.h>

#include <filesystem>

#include "tests/convert/Failures.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

/// Two passes over a hundred pictures of noise at a bit rate that their encoder cannot come down
/// to, which it knows by what the first pass told.
class ConversionInterrupt : public testing::Test {
 protected:
  ConversionSettings settings() const {
    return {.input = fixture("noisy25.mkv").string(),
            .output = (folder_ / "out.mkv").string(),
            .videoCodec = "mpeg4",
            .videoBitrate = 1000,
            .passes = 2,
            .audio = StreamAction::kNone};
  }

  /// Of a run that is interrupted once so many pictures are read; each counts half in two passes.
  static Report interruptedAfter(int64_t pictures, const ConversionSettings& settings) {
    bool isInterrupted = false;
    return Conversion(settings).run({.interrupt = [&] { return isInterrupted; },
                                     .progress =
                                         [&](const Progress& progress) {
                                           isInterrupted |= 2 * progress.pictures >= pictures;
                                         }});
  }

  TempDir folder_;
};

TEST_F(ConversionInterrupt, SuchABitRateIsRefused) {
  EXPECT_EQ(failureOf([&] { Conversion(settings()).run(); }).kind(), Failure::Kind::kSettings);
}

TEST_F(ConversionInterrupt, InTheFirstPassComesBeforeWhatThatTold) {
  EXPECT_EQ(interruptedAfter(60, settings()).outcome, Report::Outcome::kInterrupted);
  EXPECT_TRUE(std::filesystem::is_empty(folder_.path()));
}

TEST_F(ConversionInterrupt, InTheFirstPassForASizeDoesToo) {
  ConversionSettings limited = settings();
  limited.videoBitrate.reset();
  limited.passes.reset();
  limited.sizeLimit = 4000;
  EXPECT_EQ(interruptedAfter(60, limited).outcome, Report::Outcome::kInterrupted);
  EXPECT_TRUE(std::filesystem::is_empty(folder_.path()));
}

}  // namespace
}  // namespace kestrel::test
