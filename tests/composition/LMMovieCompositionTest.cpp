#include <gmock/gmock.h>
#include <kestrel/KeyedArchiver.h>
#include <kestrel/KeyedUnarchiver.h>
#include <kestrel/LMMediaSource.h>
#include <kestrel/LMMovieComposition.h>
#include <kestrel/LMMovieCompositionTrack.h>
#include <kestrel/Log.h>

#include <cmath>
#include <filesystem>
#include <fstream>

#include "tests/support/Ffprobe.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace kestrel::test {
namespace {

using testing::Contains;
using testing::Each;
using testing::IsEmpty;
using testing::SizeIs;

struct Stamp {
  int64_t pts = 0;
  int64_t dts = 0;
  int64_t size = 0;
  bool operator==(const Stamp&) const = default;
};

/// What ffprobe says of a stream's packets; times in microseconds.
std::vector<Stamp> stamps(const std::filesystem::path& file, int stream) {
  std::vector<Stamp> all;
  const auto probed =
      ffprobeJson(file, {"-show_packets", "-select_streams", std::to_string(stream)});
  const auto microseconds = [](const nlohmann::json& packet, const char* key) {
    return std::llround(std::stod(packet.value(key, std::string("-1e6"))) * 1e6);
  };
  for (const auto& packet : probed["packets"])
    all.push_back({microseconds(packet, "pts_time"), microseconds(packet, "dts_time"),
                   std::stoll(packet["size"].get<std::string>())});
  return all;
}

std::vector<Stamp> moved(std::vector<Stamp> packets, int64_t by) {
  for (Stamp& packet : packets) {
    packet.pts += by;
    packet.dts += by;
  }
  return packets;
}

class LMMovieCompositionTest : public testing::Test {
 protected:
  LMMovieCompositionTest() {
    setLogSink([this](std::string_view line) { lines_.emplace_back(line); });
  }
  ~LMMovieCompositionTest() override { setLogSink({}); }

  std::shared_ptr<LMMovieCompositionTrack> insert(const std::string& name, int32_t stream,
                                                  double at) {
    auto track = composition_.insert(fixture(name).string(), at, 1);
    track->setTrack(stream);
    return track;
  }

  LMMovieComposition composition_;
  std::vector<std::string> lines_;
  TempDir folder_;
  const std::filesystem::path output_ = folder_ / "out.mp4";
};

TEST_F(LMMovieCompositionTest, IsEmptyUntilTheFirstInsertion) {
  EXPECT_THAT(composition_.tracks(), IsEmpty());
  const auto track = composition_.insert("a.mp4", 2.5, 0.5);
  ASSERT_THAT(composition_.tracks(), SizeIs(1));
  EXPECT_EQ(composition_.tracks()[0], track);
  EXPECT_EQ(track->path(), "a.mp4");
  EXPECT_EQ(track->position(), 2.5);
  EXPECT_EQ(track->rate(), 0.5);
  EXPECT_EQ(track->track(), 0);
  EXPECT_FALSE(track->finished());
}

TEST_F(LMMovieCompositionTest, PlacesPicturesAndSoundOfTwoFilesPacketByPacket) {
  insert("av25.mp4", 0, 0);
  insert("av60.mp4", 1, 10);
  composition_.exportToFile(output_.string());
  EXPECT_FALSE(composition_.lastError());
  EXPECT_EQ(stamps(output_, 0), stamps(fixture("av25.mp4"), 0));
  EXPECT_EQ(stamps(output_, 1), moved(stamps(fixture("av60.mp4"), 1), 10000000));
}

TEST_F(LMMovieCompositionTest, MovesATrackBackByTheStartTimeOfItsInput) {
  const auto track = insert("av25.ts", 0, 0);
  ASSERT_TRUE(track->avstream());
  const double start = track->startTime();
  EXPECT_NEAR(start, 10, 0.1);
  composition_.exportToFile(output_.string());
  const auto source = stamps(fixture("av25.ts"), 0);
  const auto result = stamps(output_, 0);  // where it begins, the container says to the millisecond
  ASSERT_EQ(result.size(), source.size());
  for (size_t i = 0; i < result.size(); ++i)
    EXPECT_NEAR(static_cast<double>(result[i].pts),
                static_cast<double>(source[i].pts) - start * 1e6, 1000);
}

TEST_F(LMMovieCompositionTest, WritesPacketsInSlicesOfASecond) {
  // Where a track is after each slice, which the export tells of.
  const auto first = insert("numbered25.mp4", 0, 0);
  const auto second = insert("numbered25.mp4", 0, 1.5);
  std::vector<std::pair<double, double>> seen;
  composition_.setProgress(
      [&](double, int64_t) { seen.emplace_back(first->dts(), second->dts()); });
  composition_.exportToFile(output_.string());
  // Pictures are decoded from -0.08 s on, 0.04 s apart: each slice ends with the first at its end.
  ASSERT_GE(seen.size(), 3);
  EXPECT_NEAR(seen[0].first, 1, 1e-6);
  EXPECT_EQ(seen[0].second, 0);  // it has not begun
  EXPECT_NEAR(seen[1].first, 2, 1e-6);
  EXPECT_NEAR(seen[1].second, 0.52, 1e-6);
  EXPECT_NEAR(seen[2].second, 1.52, 1e-6);
  EXPECT_EQ(stamps(output_, 1), moved(stamps(fixture("numbered25.mp4"), 0), 1500000));
}

TEST_F(LMMovieCompositionTest, ATrackMayStartFarAway) {
  insert("av25.mp4", 0, 0);
  insert("av25.mp4", 1, 100000);
  composition_.exportToFile(output_.string());
  EXPECT_EQ(stamps(output_, 1), moved(stamps(fixture("av25.mp4"), 1), 100000000000));
}

TEST_F(LMMovieCompositionTest, PositionsThatAreNoTimesAreSurvived) {
  insert("av25.mp4", 0, 0);
  insert("av25.mp4", 1, std::nan(""));
  insert("av25.mp4", 1, INFINITY);
  insert("av25.mp4", 1, 1e300);
  composition_.exportToFile((folder_ / "out.mkv").string());
}

TEST_F(LMMovieCompositionTest, ASecondExportHasNothingToWrite) {
  insert("av25.mp4", 0, 0);
  composition_.exportToFile(output_.string());
  const auto second = folder_ / "second.mkv";
  composition_.exportToFile(second.string());
  EXPECT_TRUE(composition_.tracks()[0]->finished());
  EXPECT_LT(std::filesystem::file_size(second), 2000);
}

TEST_F(LMMovieCompositionTest, ATrackThatCannotBeOpenedIsLeftOut) {
  composition_.insert("absent.mp4", 0, 1);
  insert("av25.mp4", 0, 0);
  insert("av25.mp4", 7, 0);
  composition_.exportToFile(output_.string());
  EXPECT_EQ(ffprobeJson(output_)["streams"].size(), 1);
  for (const auto& track : composition_.tracks()) EXPECT_TRUE(track->finished());
  EXPECT_EQ(composition_.tracks()[1]->map(), 0);
}

TEST_F(LMMovieCompositionTest, ACompositionWithoutReadableFilesFailsSilently) {
  composition_.insert("absent.mp4", 0, 1);
  composition_.exportToFile(output_.string());
  composition_.exportToFile((folder_ / "no" / "folder.mp4").string());
  EXPECT_TRUE(composition_.lastError());
  composition_.exportToFile((folder_ / "unknown.container").string());
  EXPECT_TRUE(composition_.lastError());
  composition_.exportToFile((folder_ / "pictures%d.png").string());
  EXPECT_TRUE(composition_.lastError());
}

TEST_F(LMMovieCompositionTest, LogsPacketsWithoutAPresentationTime) {
  insert("mpeg4-bframes.avi", 0, 0);
  composition_.exportToFile((folder_ / "out.avi").string());
  EXPECT_THAT(lines_, Contains("AV_NOPTS_VALUE"));
}

TEST_F(LMMovieCompositionTest, DurationsAreKeptOnlyWhereWanted) {
  // Its last picture lasts longer than most, which its duration alone tells.
  const auto length = [](const std::filesystem::path& file) {
    return ffprobeJson(file)["streams"][0]["duration_ts"].get<int64_t>();
  };
  EXPECT_FALSE(composition_.keepsDurations());
  insert("av-vfr.mp4", 0, 0);
  composition_.exportToFile(output_.string());
  EXPECT_NE(length(output_), length(fixture("av-vfr.mp4")));
  composition_.setTracks({});
  insert("av-vfr.mp4", 0, 0);
  composition_.setKeepsDurations(true);
  composition_.exportToFile(output_.string());
  EXPECT_EQ(length(output_), length(fixture("av-vfr.mp4")));
  EXPECT_TRUE(composition_.keepsDurations());
}

TEST_F(LMMovieCompositionTest, StopsWhenInterrupted) {
  insert("av25.mp4", 0, 0);
  composition_.setInterrupt([] { return true; });
  composition_.exportToFile(output_.string());
  EXPECT_TRUE(composition_.lastError());
}

TEST_F(LMMovieCompositionTest, TellsHowFarItIs) {
  insert("av25.mp4", 0, 0);
  double last = 0;
  int64_t pictures = 0;
  composition_.setProgress([&](double seconds, int64_t count) {
    EXPECT_GE(seconds, last);
    last = seconds;
    pictures = count;
  });
  composition_.exportToFile(output_.string());
  EXPECT_GE(last, 1);
  EXPECT_GT(pictures, 20);
}

TEST_F(LMMovieCompositionTest, ANegativePositionDoesNotHang) {
  insert("av25.mp4", 0, -1);
  composition_.exportToFile(output_.string());
  EXPECT_TRUE(composition_.tracks()[0]->finished());
}

// --- Tracks.

class LMMovieCompositionTrackTest : public testing::Test {
 protected:
  LMMovieCompositionTrackTest() { track_.setPath(fixture("av25.mp4").string()); }

  LMMovieCompositionTrack track_;
};

TEST_F(LMMovieCompositionTrackTest, AnswersForItsStream) {
  EXPECT_FALSE(track_.source()->isOpen());
  ASSERT_TRUE(track_.avstream());
  EXPECT_TRUE(track_.source()->isOpen());
  EXPECT_EQ(track_.codecID(), AV_CODEC_ID_H264);
  EXPECT_EQ(track_.mediaType(), 0);
  EXPECT_TRUE(track_.isVideo());
  ASSERT_TRUE(track_.codecContext());
  EXPECT_EQ(track_.codecContext()->width, 320);
  track_.setTrack(1);
  EXPECT_TRUE(track_.isAudio());
  EXPECT_EQ(track_.codecContext()->codec_type, AVMEDIA_TYPE_AUDIO);
}

TEST_F(LMMovieCompositionTrackTest, HasNothingToAnswerWithoutAStream) {
  for (const int32_t index : {-1, 2, 1000}) {
    track_.setTrack(index);
    EXPECT_EQ(track_.avstream(), nullptr);
    EXPECT_EQ(track_.codecID(), 0);
    EXPECT_EQ(track_.codecContext(), nullptr);
    EXPECT_FALSE(track_.isVideo() || track_.isAudio());
  }
  LMMovieCompositionTrack empty;
  EXPECT_EQ(empty.path(), "");
  EXPECT_EQ(empty.avstream(), nullptr);
  EXPECT_EQ(empty.startTime(), 0);
}

TEST_F(LMMovieCompositionTrackTest, ReadsItsOwnPacketsToTheEnd) {
  track_.setTrack(1);
  track_.open();
  AVPacket* packet = av_packet_alloc();
  size_t count = 0;
  double last = -1;
  while (track_.readFrame(packet)) {
    EXPECT_EQ(packet->stream_index, 1);
    EXPECT_GT(track_.dts(), last);
    last = track_.dts();
    ++count;
    av_packet_unref(packet);
  }
  EXPECT_TRUE(track_.finished());
  EXPECT_FALSE(track_.readFrame(packet));
  EXPECT_EQ(count, stamps(fixture("av25.mp4"), 1).size());
  EXPECT_NEAR(track_.dts(), 2, 0.05);
  av_packet_free(&packet);
}

TEST_F(LMMovieCompositionTrackTest, AnArchiveKeepsPathPositionAndRateAlone) {
  const auto track = std::make_shared<LMMovieCompositionTrack>();
  track->setPath("Grüße.mp4");
  track->setPosition(1.25);
  track->setRate(2);
  track->setTrack(3);
  const auto bytes = KeyedArchiver::archivedDataWithRootObject(track);
  const auto back = KeyedUnarchiver(bytes).rootObject().object<LMMovieCompositionTrack>();
  EXPECT_EQ(back->path(), "Grüße.mp4");
  EXPECT_EQ(back->position(), 1.25);
  EXPECT_EQ(back->rate(), 2);
  EXPECT_EQ(back->track(), 0);

  const auto archive = PropertyList::fromData(bytes);
  const auto& objects = *archive->find("$objects")->as<PropertyList::Array>();
  const auto root = archive->find("$top")->find("root")->as<PropertyList::Uid>()->value;
  const auto& values = *objects[root].as<PropertyList::Dictionary>();
  EXPECT_THAT(values, SizeIs(4));  // the class beside the three
  EXPECT_TRUE(values.at("path").as<PropertyList::Uid>());
  EXPECT_TRUE(values.at("position").as<double>());
  EXPECT_TRUE(values.at("rate").as<double>());
}

}  // namespace
}  // namespace kestrel::test
