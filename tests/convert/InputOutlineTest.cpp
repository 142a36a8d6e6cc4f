#include "convert/probe/InputOutline.h"

#include <gtest/gtest.h>
#include <kestrel/LMMediaSource.h>

#include <cmath>
#include <memory>
#include <string>

#include "convert/probe/Streams.h"
#include "tests/support/Ffprobe.h"
#include "tests/support/Fixture.h"

extern "C" {
#include <libavformat/avformat.h>
}

namespace kestrel::test {
namespace {

/// The outline of an input that is closed already.
std::shared_ptr<AVFormatContext> outline(const std::string& name) {
  const auto source = LMMediaSource::mediaWithPath(fixture(name).string());
  source->open();
  return outlineOf(*source->formatContext());
}

std::string text(AVRational rational) {
  return std::to_string(rational.num) + "/" + std::to_string(rational.den);
}

std::string tag(const AVDictionary* tags, const char* key) {
  const AVDictionaryEntry* entry = av_dict_get(tags, key, nullptr, 0);
  return entry ? entry->value : "";
}

int64_t microseconds(const nlohmann::json& seconds) {
  return std::llround(std::stod(seconds.get<std::string>()) * 1e6);
}

TEST(InputOutline, TellsOfTheContainerWhatFfprobeTells) {
  for (const char* name : {"av-tags.mp4", "av25.ts", "av-tracks.mkv"}) {
    SCOPED_TRACE(name);
    const auto context = outline(name);
    const auto format = ffprobeJson(fixture(name)).at("format");
    EXPECT_EQ(context->iformat->name, format.at("format_name"));
    EXPECT_EQ(context->start_time, microseconds(format.at("start_time")));
    EXPECT_EQ(context->duration, microseconds(format.at("duration")));
    EXPECT_EQ(context->nb_streams, format.at("nb_streams"));
  }
  EXPECT_EQ(tag(outline("av-tags.mp4")->metadata, "title"), "A Title");
}

TEST(InputOutline, TellsOfStreamsWhatFfprobeTells) {
  for (const char* name : {"av25.mp4", "av24000-1001.mp4", "av25.ts", "av-tracks.mkv"}) {
    SCOPED_TRACE(name);
    const auto context = outline(name);
    const auto streams = ffprobeJson(fixture(name)).at("streams");
    ASSERT_EQ(context->nb_streams, streams.size());
    for (size_t i = 0; i < streams.size(); ++i) {
      const AVStream& stream = *context->streams[i];
      const auto& told = streams[i];
      EXPECT_EQ(avcodec_get_name(stream.codecpar->codec_id), told.at("codec_name"));
      EXPECT_EQ(text(stream.time_base), told.at("time_base"));
      EXPECT_EQ(text(stream.r_frame_rate), told.at("r_frame_rate"));
      EXPECT_EQ(text(stream.avg_frame_rate), told.at("avg_frame_rate"));
      EXPECT_EQ(stream.start_time, told.at("start_pts"));
      // Where ffprobe does not tell a number, there is none.
      EXPECT_EQ(stream.duration, told.value("duration_ts", AV_NOPTS_VALUE));
      EXPECT_EQ(std::to_string(stream.nb_frames), told.value("nb_frames", std::string("0")));
      EXPECT_EQ(stream.codecpar->width, told.value("width", 0));
      EXPECT_EQ(std::to_string(stream.codecpar->sample_rate),
                told.value("sample_rate", std::string("0")));
      EXPECT_EQ(stream.id, std::stoi(told.value("id", std::string("0")), nullptr, 16));
      EXPECT_EQ((stream.disposition & AV_DISPOSITION_DEFAULT) != 0,
                told.at("disposition").at("default") == 1);
      const auto tags = told.value("tags", nlohmann::json::object());
      EXPECT_EQ(tag(stream.metadata, "language"), tags.value("language", std::string()));
    }
  }
}

TEST(InputOutline, KeepsHowPicturesAreTurned) {
  const auto stream = ffprobeJson(fixture("av-rotated.mp4")).at("streams").at(0);
  const double turn = stream.at("side_data_list").at(0).at("rotation");
  ASSERT_EQ(std::abs(turn), 90);
  const Orientation kept = orientationOf(*outline("av-rotated.mp4")->streams[0]);
  EXPECT_EQ(kept.counterclockwise, turn);
  EXPECT_FALSE(kept.mirrored);
}

TEST(InputOutline, HasNoChapters) { EXPECT_EQ(outline("av-tags.mp4")->nb_chapters, 0U); }

}  // namespace
}  // namespace kestrel::test
