#include "convert/run/ConversionWriter.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "convert/plan/ConversionPlanner.h"
#include "convert/probe/Input.h"
#include "tests/convert/Failures.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

/// Writes two seconds, 50 pictures and sound, with a fast encoder that goes through them twice.
class ConversionWriterTest : public testing::Test {
 protected:
  ConversionWriterTest() {
    settings_.input = fixture("av25.mp4").string();
    settings_.output = (folder_ / "out.mkv").string();
    settings_.videoCodec = "mpeg4";
    settings_.audio = StreamAction::kEncode;
    events_.progress = [this](const Progress& progress) { times_.push_back(progress.time); };
    events_.note = [this](const std::string& sentence) { notes_.push_back(sentence); };
    events_.interrupt = [this] { return isInterrupted_; };
  }

  ConversionWriter& writer() {
    source_ = openInput(settings_.input, {}, {});
    info_ = mediaInfoOf(*source_);
    writer_ = std::make_unique<ConversionWriter>(settings_, source_, info_,
                                                 planConversion(settings_, *source_), events_);
    return *writer_;
  }

  std::unique_ptr<OutputFile> target() const {
    return std::make_unique<OutputFile>(settings_.output, false);
  }

  std::vector<fs::path> files() const {
    return {fs::directory_iterator(folder_.path()), fs::directory_iterator()};
  }

  void expectProgressOfOneRun() const {
    ASSERT_THAT(times_, testing::Not(IsEmpty()));
    EXPECT_TRUE(std::ranges::is_sorted(times_));
    EXPECT_LE(times_.back(), 2.1);
  }

  const TempDir folder_;
  ConversionSettings settings_;
  Events events_;
  std::vector<double> times_;
  std::vector<std::string> notes_;
  bool isInterrupted_ = false;
  std::shared_ptr<LMMediaSource> source_;
  MediaInfo info_;
  std::unique_ptr<ConversionWriter> writer_;
};

TEST_F(ConversionWriterTest, TwoPassesAreOneWayForWhoeverWatches) {
  settings_.videoBitrate = 400000;
  settings_.passes = 2;
  ConversionWriter& writer = this->writer();
  writer.write(settings_.output);
  EXPECT_NEAR(static_cast<double>(writer.last().length()), 2e6, 1e6 * 1024 / 44100);  // of sound
  EXPECT_EQ(writer.last().inputEnd().error.code, 0);
  expectProgressOfOneRun();
  EXPECT_GT(times_.back(), 1.9);
  // The first pass is the first half.
  EXPECT_GT(std::ranges::count_if(times_, [](double time) { return time <= 1; }), 40);
  EXPECT_GT(std::ranges::count_if(times_, [](double time) { return time > 1; }), 40);
}

TEST_F(ConversionWriterTest, MeasuringLoudnessIsTheFirstTenth) {
  settings_.loudness = -20;
  writer().write(settings_.output);
  expectProgressOfOneRun();
  EXPECT_GT(times_.back(), 1.9);
  EXPECT_GT(std::ranges::count_if(times_, [](double time) { return time > 0 && time <= 0.2; }), 10);
}

TEST_F(ConversionWriterTest, ARateThatNoStepsReachIsRefusedBehindTheFirstPass) {
  settings_.videoBitrate = 20000;
  settings_.passes = 2;
  ConversionWriter& writer = this->writer();
  const Failure failure = failureOf([&] { writer.write(settings_.output); });
  EXPECT_EQ(failure.kind(), Failure::Kind::kSettings);
  EXPECT_EQ(failure.subject(), "videoBitrate");
  EXPECT_THAT(failure.what(), HasSubstr("mpeg4 needs at least "));
  EXPECT_THAT(files(), IsEmpty());
}

TEST_F(ConversionWriterTest, ASizeLimitFillsTheTargetOrOneBesideIt) {
  settings_.sizeLimit = 150000;
  auto file = writer().writeWithin(150000, target());
  ASSERT_TRUE(file);
  EXPECT_EQ(file->target(), settings_.output);
  EXPECT_GE(fs::file_size(file->path()), 0.95 * 150000);
  EXPECT_LE(fs::file_size(file->path()), 150000U);
  EXPECT_THAT(files(), SizeIs(1));  // what other tries made is gone
  EXPECT_THAT(notes_, IsEmpty());
  expectProgressOfOneRun();
  file.reset();
  EXPECT_THAT(files(), IsEmpty());
}

TEST_F(ConversionWriterTest, WhatFitsAtItsBestQualityIsToldAndKept) {
  settings_.sizeLimit = 100000000;
  const auto file = writer().writeWithin(100000000, target());
  ASSERT_TRUE(file);
  EXPECT_GT(fs::file_size(file->path()), 0U);
  EXPECT_THAT(notes_, testing::ElementsAre(HasSubstr("of at most 100000000 bytes: its pictures "
                                                     "need no more for the best quality")));
}

TEST_F(ConversionWriterTest, ALimitBelowTheSoundIsRefused) {
  settings_.sizeLimit = 5000;
  ConversionWriter& writer = this->writer();
  const Failure failure = failureOf([&] { writer.writeWithin(5000, target()); });
  EXPECT_EQ(failure.kind(), Failure::Kind::kSettings);
  EXPECT_EQ(failure.subject(), "sizeLimit");
  EXPECT_THAT(failure.what(), testing::MatchesRegex("sizeLimit: what is no picture has [0-9]+ "
                                                    "bytes by itself, and 5000 are allowed"));
  EXPECT_THAT(files(), IsEmpty());
}

TEST_F(ConversionWriterTest, AnInterruptEndsTheSearch) {
  settings_.sizeLimit = 150000;
  events_.progress = [this](const Progress& progress) {
    times_.push_back(progress.time);
    isInterrupted_ = times_.size() > 60;  // in the second pass
  };
  const auto file = writer().writeWithin(150000, target());
  EXPECT_TRUE(file);
  EXPECT_LT(times_.back(), 1.9);
}

}  // namespace
}  // namespace kestrel::test
