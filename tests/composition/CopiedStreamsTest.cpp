#include <gmock/gmock.h>
#include <kestrel/LMMediaSource.h>
#include <kestrel/LMMovieComposition.h>
#include <kestrel/LMMovieCompositionTrack.h>
#include <kestrel/StreamFit.h>

#include <filesystem>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include "tests/support/EditList.h"
#include "tests/support/Ffprobe.h"
#include "tests/support/Fixture.h"
#include "tests/support/Peer.h"
#include "tests/support/TempDir.h"

extern "C" {
#include <libavformat/avformat.h>
}

namespace kestrel::test {
namespace {

using testing::HasSubstr;

void ffmpeg(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), {"ffmpeg", "-v", "error", "-y"});
  const RunResult result = run(arguments);
  if (result.status != 0) throw std::runtime_error(result.err);
}

/// The checksum of each decoded picture, in the order of display, whatever its time.
std::vector<std::string> pictures(const std::filesystem::path& file) {
  const RunResult result = runPeer({"ffmpeg", "-v", "error", "-i", file.string(), "-map", "0:v",
                                    "-vsync", "passthrough", "-f", "framemd5", "-"});
  std::istringstream lines(result.out);
  std::vector<std::string> sums;
  for (std::string line; std::getline(lines, line);)
    if (!line.empty() && line[0] != '#') sums.push_back(line.substr(line.rfind(',') + 1));
  return sums;
}

/// The checksum of a file's decoded sound, of several files' one behind the other.
std::string sound(const std::vector<std::filesystem::path>& files) {
  std::vector<std::string> arguments{"ffmpeg", "-v", "error"};
  std::string graph;
  for (size_t i = 0; i < files.size(); ++i) {
    arguments.insert(arguments.end(), {"-i", files[i].string()});
    graph += "[" + std::to_string(i) + ":a]";
  }
  graph += "concat=v=0:a=1:n=" + std::to_string(files.size());
  arguments.insert(arguments.end(), {"-filter_complex", graph, "-f", "md5", "-"});
  return run(arguments).out;
}

std::vector<std::string> twice(std::vector<std::string> sums) {
  const std::vector<std::string> once = sums;
  sums.insert(sums.end(), once.begin(), once.end());
  return sums;
}

size_t packetCount(const std::filesystem::path& file, int stream) {
  return ffprobeJson(file, {"-show_packets", "-select_streams", std::to_string(stream)})["packets"]
      .size();
}

class CopiedStreams : public testing::Test {
 protected:
  void add(const std::shared_ptr<LMMediaSource>& source, int32_t stream, double position) {
    auto track = std::make_shared<LMMovieCompositionTrack>();
    track->setSource(source);
    track->setTrack(stream);
    track->setPosition(position);
    auto tracks = composition_.tracks();
    tracks.push_back(std::move(track));
    composition_.setTracks(std::move(tracks));
  }

  void compose(const std::filesystem::path& input, const std::filesystem::path& output,
               double position = 0) {
    composition_.setTracks({});
    add(LMMediaSource::mediaWithPath(input.string()), 0, position);
    composition_.exportToFile(output.string());
    EXPECT_FALSE(composition_.lastError()) << composition_.lastError().message;
  }

  void join(const std::vector<std::filesystem::path>& inputs, const std::filesystem::path& output) {
    composition_.setTracks({});
    for (const auto& input : inputs)
      add(LMMediaSource::mediaWithPath(input.string()), 0, LMMovieComposition::kBehind);
    composition_.joinToFile(output.string());
    EXPECT_FALSE(composition_.lastError()) << composition_.lastError().message;
  }

  LMMovieComposition composition_;
  TempDir folder_;
};

TEST_F(CopiedStreams, OfOneSourceAllGetTheirPackets) {
  const auto source = LMMediaSource::mediaWithPath(fixture("av25.mp4").string());
  for (const auto& [stream, position] : {std::pair{0, 0.0}, {1, 0.0}, {1, 0.0}, {1, 5.0}})
    add(source, stream, position);
  const auto output = folder_ / "out.mkv";
  composition_.exportToFile(output.string());
  EXPECT_FALSE(composition_.lastError()) << composition_.lastError().message;
  EXPECT_EQ(packetCount(output, 0), packetCount(fixture("av25.mp4"), 0));
  for (const int stream : {1, 2, 3})
    EXPECT_EQ(packetCount(output, stream), packetCount(fixture("av25.mp4"), 1)) << stream;
}

TEST_F(CopiedStreams, OfOneSourceAllGetTheirPacketsInAJoin) {
  const auto source = LMMediaSource::mediaWithPath(fixture("av25.mp4").string());
  for (const int stream : {0, 1, 1}) add(source, stream, LMMovieComposition::kBehind);
  const auto output = folder_ / "out.mkv";
  composition_.joinToFile(output.string());
  EXPECT_FALSE(composition_.lastError()) << composition_.lastError().message;
  EXPECT_EQ(packetCount(output, 0), packetCount(fixture("av25.mp4"), 0));
  for (const int stream : {1, 2})
    EXPECT_EQ(packetCount(output, stream), packetCount(fixture("av25.mp4"), 1)) << stream;
}

TEST_F(CopiedStreams, KeepHiddenPicturesHidden) {
  KESTREL_NEED_MEDIA("edit-list-three.mov");
  const auto input = mediaFile("edit-list-three.mov");
  const auto shown = pictures(input);
  ASSERT_EQ(shown.size(), 48);
  for (const std::string container : {"mov", "mp4", "mkv", "ts"}) {
    SCOPED_TRACE(container);
    compose(input, folder_ / ("composed." + container));
    EXPECT_EQ(pictures(folder_ / ("composed." + container)), shown);
    join({input, input}, folder_ / ("joined." + container));
    EXPECT_EQ(pictures(folder_ / ("joined." + container)), twice(shown));
    EXPECT_EQ(composition_.picturesEncodedToHide(), 0);
  }
}

TEST_F(CopiedStreams, EncodeWhatNeedsPicturesThatCannotBeHidden) {
  const auto cut = folder_ / "cut.mp4";  // from the fourth picture of a group on
  ffmpeg({"-ss", "0.12", "-i", fixture("groups-h264.mp4").string(), "-c", "copy", cut.string()});
  const auto shown = pictures(cut);
  ASSERT_EQ(shown.size(), 47);
  compose(cut, folder_ / "first.mp4");
  EXPECT_EQ(pictures(folder_ / "first.mp4"), shown);
  EXPECT_EQ(composition_.picturesEncodedToHide(), 0);
  // Shown from the start on by a player that fills up the time before.
  for (const auto& [output, position] : {std::pair{"late.mp4", 3.0}, {"first.mkv", 0.0}}) {
    SCOPED_TRACE(output);
    compose(cut, folder_ / output, position);
    EXPECT_EQ(composition_.picturesEncodedToHide(), 5);
    const auto composed = pictures(folder_ / output);
    ASSERT_EQ(composed.size(), shown.size());
    EXPECT_TRUE(std::equal(composed.begin() + 5, composed.end(), shown.begin() + 5));
  }
  join({cut, cut}, folder_ / "joined.mp4");
  EXPECT_EQ(pictures(folder_ / "joined.mp4").size(), 2 * shown.size());
  EXPECT_EQ(composition_.picturesEncodedToHide(), 5);
  const auto tallies = composition_.inputTallies();
  ASSERT_EQ(tallies.size(), 2);
  EXPECT_EQ(tallies[0].picturesEncodedToHide, 0);
  EXPECT_EQ(tallies[1].picturesEncodedToHide, 5);
}

// What an input hides at its end is nothing to the next one, even where that goes on as if it were.
TEST_F(CopiedStreams, OfEditsOutOfOrderAreJoinedWithEveryPicture) {
  constexpr int kTicks = 512;  // of a picture
  for (const std::string clip : {"open-hevc.mp4", "open-h264.mp4"}) {
    SCOPED_TRACE(clip);
    const auto edited = folder_ / clip;
    std::filesystem::copy_file(fixture(clip), edited);
    setEdits(edited, {{600, 2 * kTicks + 23 * kTicks}, {480, 2 * kTicks}});
    const auto all = pictures(fixture(clip));
    std::vector<std::string> shown(all.begin() + 23, all.begin() + 38);
    shown.insert(shown.end(), all.begin(), all.begin() + 12);
    ASSERT_EQ(pictures(edited), shown);
    join({edited, edited}, folder_ / "joined.mp4");
    const auto joined = pictures(folder_ / "joined.mp4");
    ASSERT_EQ(joined.size(), 2 * shown.size());
    EXPECT_TRUE(std::equal(shown.begin(), shown.begin() + 12, joined.begin()));
    const auto tallies = composition_.inputTallies();
    ASSERT_EQ(tallies.size(), 2);
    // Of what is encoded there is nothing but pictures that are shown.
    EXPECT_LE(tallies[1].picturesEncodedToHide, static_cast<int64_t>(shown.size()));
  }
}

TEST_F(CopiedStreams, TakeTheContainersPixelAspectWhereTheirOwnDiffers) {
  const auto wide = folder_ / "wide.mp4";
  ffmpeg(
      {"-i", fixture("groups-h264.mp4").string(), "-c", "copy", "-aspect", "16:9", wide.string()});
  compose(wide, folder_ / "composed.mp4");
  join({wide, wide}, folder_ / "joined.mkv");
  for (const auto& output : {folder_ / "composed.mp4", folder_ / "joined.mkv"})
    EXPECT_EQ(ffprobeJson(output)["streams"][0]["display_aspect_ratio"], "16:9");
}

/// The stream info of a file's FLAC, as RFC 9639 has it.
std::string flacInfo(const std::filesystem::path& file) {
  const RunResult result =
      run({"ffprobe", "-v", "error", "-show_data", "-show_streams", "-of", "json", file.string()});
  const auto stream = nlohmann::json::parse(result.out)["streams"][0];
  std::istringstream lines(stream["extradata"].get<std::string>());
  std::string bytes;
  for (std::string line; std::getline(lines, line);)
    if (line.size() > 10)
      for (const char c : line.substr(10, 40))
        if (std::isxdigit(static_cast<unsigned char>(c)) != 0) bytes += c;
  return bytes;
}

TEST_F(CopiedStreams, OfFlacHaveOneStreamInfo) {
  for (const std::string depth : {"s16", "s32"}) {
    std::vector<std::filesystem::path> inputs;
    for (const std::string frequency : {"440", "880"}) {
      inputs.push_back(folder_ / (depth + frequency + ".flac"));
      ffmpeg({"-f", "lavfi", "-i", "sine=duration=0.7:frequency=" + frequency, "-sample_fmt", depth,
              "-frame_size", frequency == "440" ? "1152" : "4608", inputs.back().string()});
    }
    // What the encoder makes of both sounds: as long, and of the same checksum.
    const auto whole = folder_ / (depth + "whole.flac");
    ffmpeg({"-i", inputs[0].string(), "-i", inputs[1].string(), "-filter_complex",
            "concat=v=0:a=1:n=2", "-sample_fmt", depth, whole.string()});
    const std::string info = flacInfo(whole);
    ASSERT_EQ(info.size(), 2 * 34);
    for (const std::string container : {"flac", "mkv", "ogg"}) {
      SCOPED_TRACE(depth + " " + container);
      const auto output = folder_ / ("joined." + container);
      join(inputs, output);
      EXPECT_EQ(sound({output}), sound(inputs));
      if (container == "ogg") continue;  // its header is not written again
      const std::string joined = flacInfo(output);
      EXPECT_EQ(joined.substr(2 * 10), info.substr(2 * 10));
      EXPECT_EQ(joined.substr(0, 8), "03961200");  // blocks of 918, at the seam, to 4608 samples
    }
  }
}

// The format's own decoder, which compares the checksum, and a reader that seeks by the numbers of
// frames.
TEST_F(CopiedStreams, OfFlacAreNumberedThroughout) {
  std::vector<std::filesystem::path> inputs;
  for (const std::string frequency : {"440", "880", "1760"}) {
    inputs.push_back(folder_ / (frequency + ".flac"));
    ffmpeg(
        {"-f", "lavfi", "-i", "sine=duration=20:frequency=" + frequency, inputs.back().string()});
  }
  const auto output = folder_ / "joined.flac";
  join(inputs, output);
  const auto probed = ffprobeJson(output, {"-show_packets"})["packets"];
  int64_t next = 0;
  for (const auto& packet : probed) {
    EXPECT_EQ(packet["pts"].get<int64_t>(), next);
    next += packet["duration"].get<int64_t>();
  }
  EXPECT_EQ(next, 3 * 20 * 44100);
  const auto heard = [](const std::filesystem::path& file, const std::string& from) {
    return run({"ffmpeg", "-v", "error", "-ss", from, "-i", file.string(), "-t", "0.5", "-f", "md5",
                "-"})
        .out;
  };
  EXPECT_EQ(heard(output, "45"), heard(inputs[2], "5"));
}

TEST_F(CopiedStreams, OfOtherTimeBasesFollowEachOther) {
  const auto other = folder_ / "other.mp4";
  ffmpeg({"-i", fixture("groups-h264.mp4").string(), "-c", "copy", "-video_track_timescale",
          "90000", other.string()});
  const auto output = folder_ / "joined.mp4";
  join({fixture("groups-h264.mp4"), other}, output);
  EXPECT_EQ(pictures(output), twice(pictures(fixture("groups-h264.mp4"))));
  EXPECT_NEAR(std::stod(ffprobeJson(output)["format"]["duration"].get<std::string>()), 4, 0.001);
}

TEST_F(CopiedStreams, OfTwoRatesDoNotGoIntoAContainerOfOne) {
  const auto slow = folder_ / "slow.mp4";
  ffmpeg({"-i", fixture("groups-h264.mp4").string(), "-c", "copy", "-bsf:v", "setts=ts=TS*2",
          slow.string()});
  for (const auto& input : {fixture("groups-h264.mp4"), slow})
    add(LMMediaSource::mediaWithPath(input.string()), 0, LMMovieComposition::kBehind);
  composition_.joinToFile((folder_ / "out.avi").string());
  EXPECT_EQ(composition_.lastError().code, LMMovieComposition::kDoesNotJoin);
}

TEST_F(CopiedStreams, AreRefusedByTheMuxerAlone) {
  const auto refusal = [](const std::filesystem::path& file, const std::string& container) {
    const auto source = LMMediaSource::mediaWithPath(file.string());
    source->open();
    return containerRefusal(*source->formatContext()->streams[0], container);
  };
  const auto studio = folder_ / "dnxhr.mov";
  const auto cine = folder_ / "cineform.mov";
  const std::vector<std::string> picture{"-f", "lavfi", "-i", "testsrc2=s=256x128:d=0.1"};
  for (const auto& [file, codec, format] :
       {std::tuple{studio, "dnxhd", "yuv422p"}, {cine, "cfhd", "yuv422p10le"}}) {
    auto arguments = picture;
    arguments.insert(arguments.end(), {"-c:v", codec, "-pix_fmt", format});
    if (file == studio) arguments.insert(arguments.end(), {"-profile:v", "dnxhr_sq"});
    arguments.push_back(file.string());
    ffmpeg(arguments);
  }
  EXPECT_EQ(refusal(studio, "matroska"), "");
  EXPECT_EQ(refusal(cine, "mov"), "");
  EXPECT_EQ(refusal(fixture("groups-h264.mp4"), "mp4"), "");
  EXPECT_NE(refusal(fixture("groups-h264.mp4"), "webm"), "");
  EXPECT_NE(refusal(studio, "mp4"), "");
  EXPECT_NE(refusal(studio, "no such container"), "");
}

// Muxers of studios' containers answer for a sound track only behind pictures.
TEST_F(CopiedStreams, SoundIsAskedForAsItWillLie) {
  const auto refusal = [this](const std::vector<std::string>& sound, const std::string& container) {
    const auto file = folder_ / "sound.wav";
    std::vector<std::string> arguments{"-f", "lavfi", "-i", "sine=d=0.1"};
    arguments.insert(arguments.end(), sound.begin(), sound.end());
    arguments.push_back(file.string());
    ffmpeg(arguments);
    const auto source = LMMediaSource::mediaWithPath(file.string());
    source->open();
    return containerRefusal(*source->formatContext()->streams[0], container);
  };
  EXPECT_EQ(refusal({"-ar", "48000", "-c:a", "pcm_s24le"}, "mxf"), "");
  EXPECT_THAT(refusal({"-ar", "44100"}, "mxf"), HasSubstr("48khz"));
  EXPECT_EQ(refusal({"-ar", "48000", "-ac", "2"}, "dv"), "");
  EXPECT_NE(refusal({"-ar", "48000", "-ac", "2", "-c:a", "pcm_s24le"}, "dv"), "");
  EXPECT_THAT(refusal({}, "ogg"), HasSubstr("codec id"));  // and nothing of pictures
  EXPECT_NE(refusal({}, "mp4"), "");
}

TEST_F(CopiedStreams, KeepTheTagThatTellsTheirKind) {
  KESTREL_NEED_MEDIA("prores-4444-alpha.mov");
  const auto input = mediaFile("prores-4444-alpha.mov");
  const auto shown = pictures(input);
  for (const std::string container : {"mov", "mkv"}) {
    SCOPED_TRACE(container);
    const auto output = folder_ / ("out." + container);
    compose(input, output);
    const auto stream = ffprobeJson(output)["streams"][0];
    EXPECT_EQ(stream["codec_tag_string"], "ap4h");
    EXPECT_EQ(stream["pix_fmt"], ffprobeJson(input)["streams"][0]["pix_fmt"]);
    EXPECT_EQ(pictures(output), shown);
  }
}

}  // namespace
}  // namespace kestrel::test
