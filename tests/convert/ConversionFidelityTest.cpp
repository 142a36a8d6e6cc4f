#include <gmock/gmock.h>
#include <kestrel/convert/Conversion.h>

#include <cmath>
#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/Ffprobe.h"
#include "tests/support/Fixture.h"
#include "tests/support/Process.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;

namespace fs = std::filesystem;

constexpr int64_t kSecond = 1000000;

/// What a conversion keeps, to the bit and to the tick.
class ConversionFidelity : public testing::Test {
 protected:
  fs::path made(const std::string& name, std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), {"ffmpeg", "-v", "error", "-nostdin", "-y"});
    fs::path file = folder_ / name;
    arguments.push_back(file.string());
    const RunResult result = run(arguments);
    if (result.status != 0) throw std::runtime_error(result.err);
    return file;
  }

  Report convert(const fs::path& input, const fs::path& output, ConversionSettings settings = {}) {
    settings.input = input.string();
    settings.output = output.string();
    settings.replaces = true;
    return Conversion(settings).run();
  }

  /// A file's sound as ffmpeg decodes it, in a format of samples; `options` before the input.
  static std::string decoded(const fs::path& file, const std::string& format,
                             const std::vector<std::string>& options = {}) {
    std::vector<std::string> command{"ffmpeg", "-v", "error", "-nostdin"};
    command.insert(command.end(), options.begin(), options.end());
    for (const std::string& argument :
         {std::string("-i"), file.string(), std::string("-map"), std::string("0:a:0"),
          std::string("-f"), format, std::string("-")})
      command.push_back(argument);
    const RunResult result = run(command);
    if (result.status != 0) throw std::runtime_error(result.err);
    return result.out;
  }

  TempDir folder_;
};

// Noise, so that every bit of a sample means something.
TEST_F(ConversionFidelity, SoundOf32BitsStaysToTheBit) {
  const auto source =
      made("in.wav", {"-f", "lavfi", "-i", "anoisesrc=d=0.5:a=0.9:r=48000:seed=7", "-af",
                      "aresample=osf=s64,volume=0.7:precision=double", "-c:a", "pcm_s32le"});
  const std::string samples = decoded(source, "s32le");
  ASSERT_GT(samples.size(), 90000U);
  for (const auto& [name, codec] : {std::pair{"out.wav", ""},
                                    {"out.aiff", ""},
                                    {"out.mkv", "pcm_s32le"},
                                    {"out.mov", "pcm_s32be"},
                                    {"out.wv", ""},
                                    {"out2.mkv", "wavpack"}}) {
    const Report report =
        convert(source, folder_ / name, {.audio = StreamAction::kEncode, .audioCodec = codec});
    EXPECT_THAT(report.leftOut, IsEmpty()) << name;
    EXPECT_TRUE(decoded(folder_ / name, "s32le") == samples) << name;
  }
  // A span begins and ends within blocks.
  convert(source, folder_ / "part.wav", {.start = kSecond / 10, .end = kSecond * 3 / 10});
  EXPECT_TRUE(decoded(folder_ / "part.wav", "s32le") == samples.substr(4800 * 4, 9600 * 4));
  for (const auto& [name, codec] :
       {std::pair{"out.flac", ""}, {"out.m4a", "alac"}, {"out.tta", ""}})
    EXPECT_THAT(convert(source, folder_ / name, {.audioCodec = codec}).leftOut,
                Contains(HasSubstr("32 bits become 24")))
        << name;
}

TEST_F(ConversionFidelity, DoublesStayToTheBit) {
  const auto source =
      made("in.wav",
           {"-f", "lavfi", "-i", "aevalsrc='random(0)-0.5|sin(t*7)':d=0.5", "-c:a", "pcm_f64le"});
  const std::string samples = decoded(source, "f64le");
  convert(source, folder_ / "out.wav", {.audio = StreamAction::kEncode});
  EXPECT_TRUE(decoded(folder_ / "out.wav", "f64le") == samples);
  EXPECT_THAT(convert(source, folder_ / "out.wv").leftOut,
              Contains(HasSubstr("64 bits become 32")));
}

// Three times full scale, where whole numbers end.
TEST_F(ConversionFidelity, FloatsStayToTheBit) {
  const auto source =
      made("in.wav",
           {"-f", "lavfi", "-i", "aevalsrc='3*random(0)|3*sin(t*7)':d=0.5", "-c:a", "pcm_f32le"});
  const std::string samples = decoded(source, "f32le");
  for (const char* name : {"out.wav", "out.wv"}) {
    EXPECT_THAT(convert(source, folder_ / name, {.audio = StreamAction::kEncode}).leftOut,
                IsEmpty());
    EXPECT_TRUE(decoded(folder_ / name, "f32le") == samples) << name;
  }
  EXPECT_THAT(convert(source, folder_ / "out.flac").leftOut,
              Contains(HasSubstr("floating point becomes 24 bits")));
}

/// One channel of interleaved samples of three bytes.
std::string channelOf(const std::string& samples, size_t channel, size_t channels) {
  std::string one;
  for (size_t at = 3 * channel; at + 3 <= samples.size(); at += 3 * channels)
    one += samples.substr(at, 3);
  return one;
}

// ALAC has 5.1 and 6.1 with speakers behind, and for four channels 5.0 with a silent one in front.
TEST_F(ConversionFidelity, SpeakersOfOtherNamesKeepTheirSamples) {
  struct Row {
    const char* layout;
    std::vector<size_t> places;  // of the source's channels in the result
    size_t channels;             // of that
  };
  for (const Row& row : {Row{"5.1(side)", {0, 1, 2, 3, 4, 5}, 6},
                         {"6.1", {0, 1, 2, 3, 6, 4, 5}, 7},
                         {"quad", {0, 1, 3, 4}, 5}}) {
    SCOPED_TRACE(row.layout);
    const auto source =
        made("in.wav", {"-i", fixture("pcm-7.1-48000-f32.wav").string(), "-t", "0.5", "-af",
                        std::string("aformat=channel_layouts=") + row.layout, "-c:a", "pcm_s24le"});
    EXPECT_THAT(convert(source, folder_ / "out.m4a", {.audioCodec = "alac"}).leftOut, IsEmpty());
    const std::string before = decoded(source, "s24le");
    const std::string after = decoded(folder_ / "out.m4a", "s24le");
    for (size_t i = 0; i < row.places.size(); ++i)
      EXPECT_TRUE(channelOf(after, row.places[i], row.channels) ==
                  channelOf(before, i, row.places.size()))
          << i;
  }
}

// Its first text is there from 0.2 to 0.9 s.
TEST_F(ConversionFidelity, SubtitlesEndWithTheSpan) {
  const auto source = fixture("text.mkv");
  for (const char* name : {"out.mkv", "out.mp4", "out.webm"}) {
    for (const auto& [start, end] : {std::pair{0.0, 0.8}, {0.3, 0.8}}) {
      ConversionSettings settings{.start = std::llround(start * kSecond),
                                  .end = std::llround(end * kSecond)};
      convert(source, folder_ / name, settings);
      const auto packets = ffprobeJson(
          folder_ / name,
          {"-select_streams", "s", "-show_entries", "packet=pts_time,duration_time"})["packets"];
      ASSERT_FALSE(packets.empty()) << name;
      for (const auto& packet : packets) {
        const double last = std::stod(packet["pts_time"].get<std::string>()) +
                            std::stod(packet["duration_time"].get<std::string>());
        EXPECT_LE(last, end - start + 0.0011) << name;
      }
    }
  }
}

// A flash and a click at one second.
TEST_F(ConversionFidelity, CopiesIntoAviStayTogether) {
  const auto source =
      made("in.mp4",
           {"-f", "lavfi", "-i",
            "color=black:s=64x64:r=25:d=2,drawbox=c=white:t=fill:enable="
            "'between(t,1,1.039)'",
            "-f", "lavfi", "-i", "aevalsrc='if(between(t,1,1.01),0.9*sin(12000*t),0)':s=48000:d=2",
            "-c:v", "libx264", "-preset", "ultrafast", "-g", "25", "-c:a", "aac"});
  const auto output = folder_ / "out.avi";
  convert(source, output, {.video = StreamAction::kCopy, .audio = StreamAction::kCopy});
  const auto packets = ffprobeJson(
      output, {"-select_streams", "v", "-show_entries", "packet=dts_time,size"})["packets"];
  // The flash is the 26th picture, and a key picture.
  std::vector<double> times;
  for (const auto& packet : packets)
    times.push_back(std::stod(packet["dts_time"].get<std::string>()));
  ASSERT_EQ(times.size(), 50U);
  const std::string sound = decoded(output, "s16le");
  size_t click = 0;
  const auto* samples = reinterpret_cast<const int16_t*>(sound.data());
  while (click < sound.size() / 2 && std::abs(samples[click]) < 5000) ++click;
  EXPECT_NEAR(times[25], static_cast<double>(click) / 48000, 0.04);
}

TEST_F(ConversionFidelity, SubtitlesThatAreNotThereAreTold) {
  // Its text begins behind the span.
  const auto late =
      made("late.mkv", {"-i", fixture("text.mkv").string(), "-itsoffset", "1.5", "-i",
                        fixture("text.mkv").string(), "-map", "0:v", "-map", "1:s", "-c", "copy"});
  for (const char* name : {"out.mkv", "out.mp4"})
    EXPECT_THAT(convert(late, folder_ / name, {.end = kSecond / 2}).leftOut,
                Contains(HasSubstr("subtitles #1 (subrip): none were found in what was converted")))
        << name;
  const auto counted = made("counted.mkv", {"-i", fixture("text.mkv").string(), "-map", "0", "-c",
                                            "copy", "-metadata:s:s:0", "NUMBER_OF_FRAMES=0"});
  EXPECT_THAT(convert(counted, folder_ / "out.mkv").leftOut,
              Contains(HasSubstr("subtitles #1 (subrip): it is empty")));
  EXPECT_EQ(ffprobeJson(folder_ / "out.mkv")["streams"].size(), 1U);
}

}  // namespace
}  // namespace kestrel::test
