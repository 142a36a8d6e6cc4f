#include <gmock/gmock.h>

#include <string>

#include "tests/e2e/Decoded.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

class ConvertSoundCopy : public testing::Test {
 protected:
  /// A hash of all bytes of a track's packets.
  static std::string bytesOf(const std::filesystem::path& file, const std::string& track) {
    return ffmpeg({"-i", file.string(), "-map", "0:" + track, "-c", "copy", "-f", "streamhash",
                   "-hash", "md5", "-"});
  }

  /// How many packets the sound has.
  static size_t packetsOf(const std::filesystem::path& file) {
    return packetHashes(file, "a").size();
  }

  const Arguments fast_{"--encoder-preset", "ultrafast"};
  TempDir folder_;
};

TEST_F(ConvertSoundCopy, UsualSoundGoesAlongBesideEncodedPictures) {
  const auto input = fixture("av25.mp4");
  for (const char* name : {"out.mp4", "out.mov", "out.mkv"}) {
    const auto output = folder_ / name;
    ASSERT_TRUE(converts(input, output, fast_)) << name;
    EXPECT_EQ(bytesOf(output, "a"), bytesOf(input, "a")) << name;
    if (name == std::string("out.mkv")) continue;  // it cannot hide what AAC begins with
    EXPECT_EQ(pictureTimes(output), pictureTimes(input)) << name;
    EXPECT_EQ(sampleCount(output), sampleCount(input)) << name;
    EXPECT_NEAR(soundStart(output), soundStart(input), 0.001) << name;
  }
}

TEST_F(ConvertSoundCopy, SeveralTracksAtOnceAreCopiedAndEncoded) {
  const auto input = fixture("av-copies.mkv");
  const auto output = folder_ / "out.mkv";
  ASSERT_TRUE(converts(input, output, fast_));
  for (const char* track : {"a:0", "a:1"}) {
    EXPECT_EQ(bytesOf(output, track), bytesOf(input, track)) << track;
  }
  std::vector<std::string> codecs;
  const auto probed = ffprobeJson(output);
  for (const auto& stream : probed.at("streams")) codecs.push_back(stream["codec_name"]);
  EXPECT_THAT(codecs, testing::ElementsAre("h264", "ac3", "flac", "aac"));
}

TEST_F(ConvertSoundCopy, AChangeAndASpanAreToTheSample) {
  const auto input = fixture("av25.mp4");
  const auto output = folder_ / "out.mp4";
  ASSERT_TRUE(converts(input, output, joined(fast_, {"--start", "0.5", "--duration", "1"})));
  EXPECT_NE(bytesOf(output, "a"), bytesOf(input, "a"));
  EXPECT_NEAR(static_cast<double>(sampleCount(output)), 44100, 1024);  // to the encoder's frame
  // FLAC stays FLAC, and each sample what it was.
  const auto cut = folder_ / "cut.mka";
  ASSERT_TRUE(converts(fixture("mixed-forms.mkv"), cut,
                       {"--audio-tracks", "0", "--start", "0.25", "--duration", "0.5"}));
  const auto before = samples(fixture("mixed-forms.mkv"));
  const auto after = samples(cut);
  ASSERT_EQ(after.size(), before.size() / 2);
  EXPECT_TRUE(std::equal(after.begin(), after.end(), before.begin() + before.size() / 4));
}

TEST_F(ConvertSoundCopy, NamedCodecsPassThrough) {
  const auto input = fixture("av-copies.mkv");
  const auto output = folder_ / "out.mkv";
  ASSERT_TRUE(converts(input, output,
                       joined(fast_, {"--audio-copy", "ac3", "--audio-codec", "libmp3lame"})));
  EXPECT_EQ(bytesOf(output, "a:0"), bytesOf(input, "a:0"));
  std::vector<std::string> codecs;
  const auto probed = ffprobeJson(output);
  for (const auto& stream : probed.at("streams")) codecs.push_back(stream["codec_name"]);
  EXPECT_THAT(codecs, testing::ElementsAre("h264", "ac3", "mp3", "mp3"));
  for (const Arguments& wrong :
       {Arguments{"--audio-copy", "ac5"}, Arguments{"--audio-copy", "ac3,,dts"},
        Arguments{"--audio-copy", "ac3", "--audio-codec", "copy"}})
    EXPECT_TRUE(
        endsWithSentence(convert(input, output, joined(wrong, {"--force"})), 2, "--audio-copy"));
  EXPECT_TRUE(endsWithSentence(
      convert(input, output, {"--audio-copy", "ac3", "--volume", "2", "--force"}), 2, "--volume"));
}

TEST_F(ConvertSoundCopy, DamagedPacketsAreLeftOutAndTold) {
  // Every tenth packet or so has lost its head.
  const auto input = folder_ / "damaged.mka";
  ffmpeg({"-i", fixture("audio-only.m4a").string(), "-c", "copy", "-bsf:a",
          "noise=amount='20*eq(mod(n,10),5)'", input.string()});
  const auto output = folder_ / "out.m4a";
  const RunResult result = convert(input, output);
  EXPECT_TRUE(endsWithSentence(result, 3, "could not be decoded"));
  EXPECT_LT(packetsOf(output), packetsOf(input));
  EXPECT_GT(sampleCount(output), 44100);  // which throws where ffmpeg complains
}

TEST_F(ConvertSoundCopy, FewerChannelsAndALowerRateAreTold) {
  const RunResult surround = convert(fixture("pcm-5.1-48000-s16.wav"), folder_ / "a.mp3", {});
  EXPECT_EQ(surround.status, 0);
  EXPECT_THAT(surround.err, testing::EndsWith("6 channels become 2: mp3 has no more\n"));
  const RunResult fine = convert(fixture("pcm-stereo-96000-s24.wav"), folder_ / "b.mp3", {});
  EXPECT_THAT(fine.err, testing::EndsWith("96000 Hz become 48000: mp3 has no more\n"));
  EXPECT_TRUE(convert(fixture("pcm-5.1-48000-s16.wav"), folder_ / "c.mp3", {"--channels", "stereo"})
                  .err.empty());
}

TEST_F(ConvertSoundCopy, LosslessSoundOfAnyFormStaysBitExact) {
  for (const auto& [rate, layout, channels] : {std::tuple{48000, "stereo", 2},
                                               {96000, "5.1", 6},
                                               {192000, "stereo", 2},
                                               {192000, "5.1", 6},
                                               {48000, "7.1", 8},
                                               {192000, "7.1", 8}}) {
    const auto input = folder_ / "in.flac";
    // Noise, so that frames are as long as they get.
    std::string tones = "'0.3*sin(2*PI*441*t)+0.0000003*sin(2*PI*997*t)";
    for (int i = 1; i < channels; ++i) tones += "|random(" + std::to_string(i) + ")-0.5";
    ffmpeg({"-f", "lavfi", "-i",
            "aevalsrc=" + tones + "':d=0.4:s=" + std::to_string(rate) + ":c=" + layout, "-c:a",
            "flac", "-sample_fmt", "s32", "-bits_per_raw_sample", "24", "-frame_size", "4096",
            input.string()});
    const auto hash = [](const std::filesystem::path& file) {
      return ffmpeg({"-i", file.string(), "-map", "0:a", "-c:a", "pcm_s32le", "-f", "md5", "-"});
    };
    for (const auto& [name, options] : {std::pair{"a.flac", Arguments{"--audio-codec", "flac"}},
                                        {"a.mkv", {"--audio-codec", "flac"}},
                                        {"b.mkv", {}},
                                        {"a.mp4", {"--audio-codec", "flac"}},
                                        {"b.mp4", {"--audio-codec", "copy"}},
                                        {"a.mov", {"--audio-codec", "alac"}},
                                        {"b.mov", {"--audio-codec", "pcm_s24le"}},
                                        {"a.wav", {}}}) {
      // ALAC knows eight channels in another arrangement only.
      if (channels == 8 && name == std::string("a.mov")) continue;
      SCOPED_TRACE(std::to_string(rate) + " " + layout + " " + name);
      const auto output = folder_ / name;
      ASSERT_TRUE(converts(input, output, joined(options, {"--force"})));
      EXPECT_EQ(hash(output), hash(input));
    }
  }
}

}  // namespace
}  // namespace kestrel::test
