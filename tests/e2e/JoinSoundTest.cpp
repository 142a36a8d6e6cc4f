#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <limits>

#include "tests/e2e/JoinFixture.h"
#include "tests/e2e/NumberedClip.h"
#include "tests/support/FileBytes.h"
#include "tests/support/Fixture.h"

namespace kestrel::test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;

constexpr char kCopied[] = "copying pictures and encoding sound anew: ";

/// Joins of inputs that differ in their sound.
class JoinSoundTest : public JoinTest {
 protected:
  /// A clip with the same packets of pictures and other sound.
  fs::path withSound(const std::string& name, const Arguments& codec,
                     const std::string& clip = "numbered25.mp4") const {
    const auto file = folder_ / name;
    ffmpeg(joined(joined({"-i", fixture(clip).string(), "-c:v", "copy"}, codec), {file.string()}));
    return file;
  }

  /// Five different channels of 24 bits beside pictures.
  fs::path surround(const std::string& name) const {
    const auto file = folder_ / name;
    ffmpeg({"-i", fixture("numbered25.mp4").string(), "-f", "lavfi", "-i",
            "aevalsrc=0.3*sin(2*PI*300*t)|0.3*sin(2*PI*400*t)|0.3*sin(2*PI*500*t)|0|"
            "0.3*sin(2*PI*600*t)|0.3*sin(2*PI*700*t):c=5.1:s=48000:d=5",
            "-map", "0:v", "-map", "1:a", "-c:v", "copy", "-c:a", "flac", "-sample_fmt", "s32",
            file.string()});
    return file;
  }

  static std::vector<std::string> twice(std::vector<std::string> packets) {
    const auto once = packets;
    packets.insert(packets.end(), once.begin(), once.end());
    return packets;
  }

  /// One channel of a file's sound, of 0, 1, 2 …
  std::vector<float> channel(const fs::path& file, int number) const {
    const auto alone = folder_ / "alone.wav";
    ffmpeg({"-i", file.string(), "-map", "0:a:0", "-af", "pan=mono|c0=c" + std::to_string(number),
            alone.string()});
    return samples(alone);
  }
};

TEST_F(JoinSoundTest, PicturesAreCopiedWhereOnlyTheSoundDiffers) {
  const auto clip = fixture("numbered25.mp4");
  const auto other = withSound("other.mp4", {"-c:a", "mp3", "-ar", "48000"});
  for (const std::string name : {"out.mp4", "out.mkv"}) {
    SCOPED_TRACE(name);
    const auto output = folder_ / name;
    const RunResult result = join({clip, other}, output);
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(result.out, HasSubstr(kCopied + ("'" + other.string()) + "': sound codec mp3"));
    EXPECT_EQ(packetHashes(output, "v"), twice(packetHashes(clip, "v")));
    EXPECT_EQ(streamOf(output, "audio")["codec_name"], "aac");
    const auto ticks = tickTimes(output);
    ASSERT_THAT(ticks, SizeIs(10));
    const auto times = pictureTimes(output);
    for (size_t i = 0; i < 10; ++i) EXPECT_NEAR(ticks[i], times.at(25 * i), 0.03) << i;
  }
  const RunResult never = join({clip, other}, folder_ / "never.mp4", {"--reencode", "never"});
  EXPECT_EQ(never.status, 1);
  EXPECT_THAT(never.err, HasSubstr("do not fit together: '" + other.string()));
}

TEST_F(JoinSoundTest, RateChannelsAndDepthAreTheFirstInputs) {
  const auto first = surround("first.mkv");
  const auto second = withSound("second.mkv", {"-c:a", "mp3", "-ar", "44100", "-ac", "2"});
  for (const char* when : {"auto", "always"}) {
    SCOPED_TRACE(when);
    const auto output = folder_ / "out.mkv";
    ASSERT_EQ(join({first, second}, output, {"--reencode", when, "--force"}).status, 0);
    const auto sound = streamOf(output, "audio");
    EXPECT_EQ(sound["codec_name"], "flac");
    EXPECT_EQ(sound["sample_rate"], "48000");
    EXPECT_EQ(sound["channel_layout"], "5.1");
    EXPECT_EQ(sound["bits_per_raw_sample"], "24");
    // Not a bit of the first one's is lost.
    const auto own = samples(first);
    auto all = samples(output);
    ASSERT_GT(all.size(), own.size());
    all.resize(own.size());
    EXPECT_TRUE(all == own);
    EXPECT_THAT(tickTimes(output), SizeIs(testing::Ge(5)));
    EXPECT_EQ(peak(channel(output, 3)), 0);  // nobody has low frequencies alone
  }
}

TEST_F(JoinSoundTest, SoundAloneKeepsItsKindToo) {
  const auto low = folder_ / "low.wav";
  ffmpeg({"-f", "lavfi", "-i", "sine=r=8000:d=1", "-c:a", "pcm_s24le", low.string()});
  const auto high = folder_ / "high.flac";
  ffmpeg({"-f", "lavfi", "-i", "sine=r=96000:d=1", "-ac", "2", high.string()});
  const auto output = folder_ / "out.wav";
  ASSERT_EQ(join({low, high}, output).status, 0);
  auto sound = streamOf(output, "audio");
  EXPECT_EQ(sound["codec_name"], "pcm_s24le");
  EXPECT_EQ(sound["sample_rate"], "8000");
  EXPECT_EQ(sound["channels"], 1);
  EXPECT_NEAR(static_cast<double>(sampleCount(output)), 16000, 8);
  const auto lossless = folder_ / "out.flac";
  ASSERT_EQ(join({high, low}, lossless).status, 0);
  sound = streamOf(lossless, "audio");
  EXPECT_EQ(sound["sample_rate"], "96000");
  EXPECT_EQ(sound["bits_per_raw_sample"], "16");
}

// Lengths that are no multiple of any step in which sound is written.
TEST_F(JoinSoundTest, SoundAloneEndsWithItsLastSample) {
  const auto clip = folder_ / "clip.mka";
  ffmpeg({"-f", "lavfi", "-i", "sine=sample_rate=44100", "-af", "atrim=end_sample=88219", "-c:a",
          "flac", clip.string()});
  ASSERT_EQ(sampleCount(clip), 88219);
  for (const std::string name : {"out.wav", "out.mka", "out.flac"}) {
    SCOPED_TRACE(name);
    const auto output = folder_ / name;
    const RunResult result = join({clip, clip}, output, {"--reencode", "always"});
    ASSERT_EQ(result.status, 0) << result.err;
    const auto own = samples(clip);
    auto expected = own;
    expected.insert(expected.end(), own.begin(), own.end());
    EXPECT_TRUE(samples(output) == expected);
  }
}

TEST_F(JoinSoundTest, SoundThatOutlastsThePicturesEndsWithItsLastSample) {
  const auto clip = folder_ / "clip.mkv";
  ffmpeg({"-i", fixture("numbered25.mp4").string(), "-f", "lavfi", "-i", "sine=sample_rate=48000",
          "-map", "0:v", "-map", "1:a", "-c:v", "copy", "-t", "6.013", "-c:a", "pcm_s16le",
          clip.string()});
  const auto first = withSound("first.mkv", {"-c:a", "flac", "-ar", "44100"});
  const auto output = folder_ / "out.mkv";
  const RunResult result = join({first, clip}, output);
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.out, HasSubstr(kCopied));
  const double heard = 5 + static_cast<double>(sampleCount(clip)) / 48000;
  EXPECT_NEAR(static_cast<double>(sampleCount(output)), 44100 * heard, 16);
}

// Twice the same packets would lose what lies behind the first's short last frame.
TEST_F(JoinSoundTest, TtaThatEndsWithWholeFramesIsCopied) {
  const auto make = [&](const std::string& name, int hertz, int count) {
    ffmpeg({"-f", "lavfi", "-i",
            "sine=frequency=" + std::to_string(hertz) + ":sample_rate=44100:duration=4", "-af",
            "atrim=end_sample=" + std::to_string(count), "-c:a", "tta", (folder_ / name).string()});
    return samples(folder_ / name);
  };
  constexpr int kFrame = 46080;
  const auto one = make("one.tta", 440, kFrame);
  const auto two = make("two.tta", 880, 2 * kFrame);
  const auto rest = make("rest.tta", 660, 20001);
  ASSERT_THAT(rest, SizeIs(20001));
  std::vector<float> expected = one;
  for (const auto* more : {&two, &one, &rest})
    expected.insert(expected.end(), more->begin(), more->end());
  const auto part = [&](const char* name) { return folder_ / name; };
  RunResult result =
      join({part("one.tta"), part("two.tta"), part("one.tta"), part("rest.tta")}, part("out.tta"));
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.out, Not(HasSubstr("encoding anew")));
  EXPECT_TRUE(samples(part("out.tta")) == expected);
  EXPECT_EQ(ffmpeg({"-xerror", "-err_detect", "crccheck+explode", "-i", part("out.tta").string(),
                    "-f", "null", "-"}),
            "");

  // Matroska does not keep how short the last frame is, and nothing comes behind a short one.
  expected = one;
  expected.insert(expected.end(), rest.begin(), rest.end());
  result = join({part("one.tta"), part("rest.tta")}, part("out.mka"));
  EXPECT_THAT(result.out, HasSubstr("encoding anew"));
  EXPECT_TRUE(samples(part("out.mka")) == expected);
  expected.insert(expected.end(), one.begin(), one.end());
  result = join({part("one.tta"), part("rest.tta"), part("one.tta")}, part("both.tta"));
  EXPECT_THAT(result.out, HasSubstr("frames can't follow the short last one"));
  EXPECT_TRUE(samples(part("both.tta")) == expected);
}

TEST_F(JoinSoundTest, TtaIsEncodedAnewBehindAShortFrame) {
  for (const auto& [name, source] :
       {std::pair{"low.tta", "sine=frequency=440:sample_rate=44100:duration=2"},
        {"high.tta", "sine=frequency=1000:sample_rate=44100:duration=1.5"}})
    ffmpeg({"-f", "lavfi", "-i", source, "-c:a", "tta", (folder_ / name).string()});
  const auto low = samples(folder_ / "low.tta");
  const auto high = samples(folder_ / "high.tta");
  ASSERT_THAT(low, SizeIs(88200));
  ASSERT_THAT(high, SizeIs(66150));
  std::vector<float> expected = low;
  expected.insert(expected.end(), low.begin(), low.end());
  expected.insert(expected.end(), high.begin(), high.end());
  for (const auto& [name, codec] : {std::pair{"out.tta", "tta"}, {"out.mka", "flac"}}) {
    const auto output = folder_ / name;
    const RunResult result =
        join({folder_ / "low.tta", folder_ / "low.tta", folder_ / "high.tta"}, output);
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(result.out, HasSubstr("frames can't follow the short last one before them (encoded "
                                      "again, they lose nothing)"));
    EXPECT_TRUE(samples(output) == expected) << name;
    EXPECT_EQ(streamOf(output, "audio")["codec_name"], codec);
  }
}

TEST_F(JoinSoundTest, DepthThatIsLostIsTold) {
  const auto low = folder_ / "low.wav";
  ffmpeg({"-f", "lavfi", "-i", "sine=r=8000:d=1", low.string()});
  const auto depth = [&](const std::string& codec, const std::string& target) {
    const auto deep = folder_ / (codec + ".wav");
    ffmpeg({"-f", "lavfi", "-i", "sine=r=48000:d=1", "-c:a", codec, deep.string()});
    const RunResult result = join(
        {deep, low}, folder_ / "out.wav",
        joined({"--force"}, target.empty() ? Arguments{} : Arguments{"--audio-codec", target}));
    EXPECT_EQ(result.status, 0) << result.err;
    return result.out + result.err;
  };
  EXPECT_THAT(depth("pcm_s32le", "pcm_f32le"), HasSubstr("32 bits become 24"));
  EXPECT_THAT(depth("pcm_f64le", "pcm_s32le"), HasSubstr("53 bits become 32"));
  EXPECT_THAT(depth("pcm_s24le", "pcm_s16le"), HasSubstr("24 bits become 16"));
  for (const char* whole : {"pcm_s24le", "pcm_s32le", "pcm_f32le", "pcm_f64le", "pcm_s16le"})
    EXPECT_THAT(depth(whole, ""), Not(HasSubstr("bits become"))) << whole;
  EXPECT_THAT(depth("pcm_f32le", "pcm_s24le"), Not(HasSubstr("bits become")));
  EXPECT_THAT(depth("pcm_s32le", "mp3"), Not(HasSubstr("bits become")));
}

// Samples are compared by what ffmpeg makes of the same two files, as doubles.
// Also in the report that hosts get, which the line comes from.
TEST_F(JoinSoundTest, SoundThatIsNoLongerWholeIsTold) {
  const auto whole = folder_ / "whole.flac";
  ffmpeg({"-f", "lavfi", "-i", "sine=r=44100:d=1", whole.string()});
  const std::string loss = "lost in sound of '" + whole.string() +
                           "': flac becomes aac, which does not keep every sample";
  const RunResult result = join({whole, whole}, folder_ / "out.mov");
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.err, HasSubstr(loss));
  for (const Arguments& rest :
       {Arguments{"--audio-codec", "aac"}, Arguments{"--audio-codec", "alac"}})
    EXPECT_THAT(join({whole, whole}, folder_ / "out.mov", joined({"--force"}, rest)).err,
                Not(HasSubstr("lost in sound")));
}

TEST_F(JoinSoundTest, SoundOfMoreThan24BitsKeepsEveryBit) {
  const auto exact = [&](const fs::path& file) {
    const auto raw = folder_ / "raw.f64";
    ffmpeg({"-i", file.string(), "-map", "0:a", "-f", "f64le", raw.string()});
    return readBytes(raw);
  };
  const auto low = folder_ / "low.wav";
  ffmpeg({"-f", "lavfi", "-i", "sine=r=48000:d=0.3", low.string()});
  const std::string second = exact(low);
  for (const auto& [codec, name] : {std::pair{"pcm_s32le", "first.wav"},
                                    {"pcm_s32le", "first.mov"},
                                    {"pcm_s32be", "first.mov"},
                                    {"pcm_s32le", "first.mkv"},
                                    {"pcm_f32le", "first.wav"},
                                    {"pcm_f32le", "first.mov"},
                                    {"pcm_f64le", "first.wav"},
                                    {"pcm_f64le", "first.mkv"},
                                    {"wavpack", "first.wv"}}) {
    SCOPED_TRACE(codec + std::string(" ") + name);
    const auto first = folder_ / name;
    ffmpeg(joined(
        {"-f", "lavfi", "-i", "aevalsrc=1.2*sin(n*n/7001)*exp(-n/9000):s=48000:d=0.5", "-c:a",
         codec},
        joined(name == std::string("first.wv") ? Arguments{"-sample_fmt", "s32p"} : Arguments{},
               {first.string()})));
    const auto output = folder_ / ("out-" + std::string(name));
    const RunResult result = join({first, low}, output, {"--force"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(result.out, HasSubstr("encoding anew: "));
    EXPECT_EQ(streamOf(output, "audio")["codec_name"], codec);
    EXPECT_TRUE(exact(output) == exact(first) + second);
  }
}

TEST_F(JoinSoundTest, SoundIsEncodedByTheEncoderAskedFor) {
  const auto first = withSound("first.mkv", {"-c:a", "pcm_s16le"});
  const auto second = withSound("second.mkv", {"-c:a", "mp3"});
  const auto begin = [](const fs::path& file) {
    auto packets = packetHashes(file, "a");
    packets.resize(100);
    return packets;
  };
  const auto encoded = [&](const std::string& encoder) {
    const auto file = folder_ / (encoder + ".mka");
    ffmpeg({"-i", first.string(), "-map", "0:a", "-c:a", encoder, "-b:a", "128k", file.string()});
    return begin(file);
  };
  const auto expected = encoded("ac3_fixed");
  ASSERT_NE(expected, encoded("ac3"));
  for (const char* when : {"auto", "always"}) {
    const auto output = folder_ / "out.mkv";
    const RunResult result = join(
        {first, second}, output,
        {"--reencode", when, "--force", "--audio-codec", "ac3_fixed", "--audio-bitrate", "128k"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(begin(output), expected) << when;
  }
}

// WavPack's and TTA's encoders name formats of 8 bits first, that of Apple Lossless one of 24.
TEST_F(JoinSoundTest, DepthIsNotWhatTheEncoderNamesFirst) {
  const auto other = folder_ / "other.mp3";
  ffmpeg({"-f", "lavfi", "-i", "sine=d=1", "-ac", "2", other.string()});
  for (const std::string name : {"sound.wv", "sound.tta", "sound.caf"}) {
    SCOPED_TRACE(name);
    const auto first = folder_ / name;
    const Arguments codec = name == "sound.caf" ? Arguments{"-c:a", "alac"} : Arguments{};
    ffmpeg(joined(joined({"-f", "lavfi", "-i", "sine=f=600:d=1", "-ac", "2"}, codec),
                  {"-sample_fmt", name == "sound.tta" ? "s16" : "s16p", first.string()}));
    const auto output = folder_ / ("out-" + name);
    ASSERT_EQ(join({first, other}, output).status, 0);
    const auto sound = streamOf(output, "audio");
    EXPECT_EQ(sound["codec_name"], streamOf(first, "audio")["codec_name"]);
    EXPECT_EQ(sound["bits_per_raw_sample"], "16");
    auto all = samples(output);
    const auto own = samples(first);
    ASSERT_GT(all.size(), 1.9 * static_cast<double>(own.size()));
    all.resize(own.size());
    EXPECT_TRUE(all == own);
  }
}

TEST_F(JoinSoundTest, RatesThatTheEncoderHasNotBecomeTheNearest) {
  const auto low = withSound("low.mkv", {"-c:a", "pcm_s16le", "-ar", "8000"});
  const auto output = folder_ / "out.mkv";
  ASSERT_EQ(join({low, low}, output, {"--audio-codec", "ac3"}).status, 0);
  EXPECT_EQ(streamOf(output, "audio")["sample_rate"], "32000");
}

TEST_F(JoinSoundTest, SoundThatTheContainerRefusesLeavesThePicturesAlone) {
  const auto clip = withSound("pcm.mkv", {"-c:a", "pcm_s16le"});
  const auto output = folder_ / "out.mp4";
  const RunResult result = join({clip, clip}, output);
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.out, HasSubstr(kCopied));
  EXPECT_EQ(packetHashes(output, "v"), twice(packetHashes(clip, "v")));
  EXPECT_EQ(streamOf(output, "audio")["codec_name"], "aac");
}

TEST_F(JoinSoundTest, AnInputWithFewerTracksIsSilentInTheOthers) {
  const auto both = folder_ / "both.mkv";
  ffmpeg({"-i", fixture("numbered25.mp4").string(), "-map", "0:v", "-map", "0:a", "-map", "0:a",
          "-c", "copy", both.string()});
  const auto output = folder_ / "out.mkv";
  const RunResult result = join({both, fixture("numbered25.mp4")}, output);
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.out, HasSubstr(kCopied));
  const auto second = folder_ / "second.mkv";
  ffmpeg({"-i", output.string(), "-map", "0:v", "-map", "0:a:1", "-c", "copy", second.string()});
  EXPECT_THAT(tickTimes(output), SizeIs(10));
  EXPECT_THAT(tickTimes(second), SizeIs(5));
  EXPECT_NEAR(static_cast<double>(sampleCount(second)) / 44100, 10, 0.1);
}

TEST_F(JoinSoundTest, SoundThatOutlastsItsPicturesMovesWhatFollows) {
  const auto longer = folder_ / "longer.mp4";
  ffmpeg({"-t", "2", "-i", fixture("numbered25.mp4").string(), "-i",
          fixture("numbered25.mp4").string(), "-map", "0:v", "-map", "1:a", "-c", "copy",
          longer.string()});
  const auto other = withSound("other.mp4", {"-c:a", "mp3"});
  const auto output = folder_ / "out.mkv";
  const RunResult result = join({longer, other}, output);
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.out, HasSubstr(kCopied));
  const auto pictures = shownPictures(output);
  const auto ticks = tickTimes(output);
  const size_t first = shownNumbers(longer).size();
  ASSERT_THAT(pictures, SizeIs(first + 125));
  ASSERT_THAT(ticks, SizeIs(10));
  EXPECT_NEAR(pictures[first].time - pictures[0].time, 5, 0.05);
  EXPECT_NEAR(ticks[4], 4, 0.03);
  EXPECT_NEAR(ticks[5], pictures[first].time, 0.03);
}

TEST_F(JoinSoundTest, GapsAreSilent) {
  const auto clip = fixture("numbered25.mp4");
  const auto other = withSound("other.mp4", {"-c:a", "mp3"});
  const auto output = folder_ / "out.mkv";
  const RunResult result = work(output, {{clip, 0, 1}, {other, 7.5, 1}});
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.err, HasSubstr(kCopied));
  const auto times = pictureTimes(output);
  const auto ticks = tickTimes(output);
  ASSERT_THAT(times, SizeIs(250));
  ASSERT_THAT(ticks, SizeIs(10));
  EXPECT_NEAR(times[125], 7.5, 0.1);
  EXPECT_NEAR(ticks[4], 4, 0.03);
  for (size_t i = 0; i < 5; ++i) EXPECT_NEAR(ticks[5 + i], times[125 + 25 * i], 0.03) << i;
}

TEST_F(JoinSoundTest, SubtitlesStayWithPicturesThatAreCopied) {
  writeBytes(folder_ / "text.srt", "1\n00:00:00,500 --> 00:00:01,000\na\n\n");
  const auto withText = [&](const fs::path& clip, const std::string& name) {
    const auto file = folder_ / name;
    ffmpeg({"-i", clip.string(), "-i", (folder_ / "text.srt").string(), "-map", "0", "-map", "1",
            "-c", "copy", file.string()});
    return file;
  };
  const auto first = withText(fixture("numbered25.mp4"), "first.mkv");
  const auto second = withText(withSound("other.mp4", {"-c:a", "mp3"}), "second.mkv");
  const auto output = folder_ / "out.mkv";
  ASSERT_EQ(join({first, second}, output).status, 0);
  std::vector<std::string> types;
  const auto probed = ffprobeJson(output);
  for (const auto& stream : probed["streams"]) types.push_back(stream["codec_type"]);
  EXPECT_THAT(types, ElementsAre("video", "audio", "subtitle"));
  EXPECT_EQ(packetHashes(output, "s"), twice(packetHashes(first, "s")));
}

/// Sound that is no number, as programs leave it.
TEST_F(JoinSoundTest, SamplesThatAreNoNumbersAreSilent) {
  std::string raw(2 * 44100 * sizeof(float), '\0');
  const float nothing = std::numeric_limits<float>::quiet_NaN();
  for (size_t i = raw.size() / 4; i < raw.size() / 2; i += sizeof(float))
    std::memcpy(raw.data() + i, &nothing, sizeof(float));
  writeBytes(folder_ / "raw", raw);
  const auto clip = folder_ / "nan.mkv";
  ffmpeg({"-t", "2", "-i", fixture("numbered25.mp4").string(), "-f", "f32le", "-ar", "44100", "-i",
          (folder_ / "raw").string(), "-map", "0:v", "-map", "1:a", "-c", "copy", clip.string()});
  for (const char* when : {"auto", "always"}) {
    const auto output = folder_ / "out.mp4";
    const RunResult result =
        join({clip, fixture("numbered25.mp4")}, output, {"--reencode", when, "--force"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(tickTimes(output), SizeIs(5)) << when;
  }
}

}  // namespace
}  // namespace kestrel::test
