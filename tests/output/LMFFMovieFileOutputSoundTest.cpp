#include <kestrel/LMFFAudioResample.h>
#include <kestrel/LMFFMovieFileOutput.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numbers>

#include "support/FFmpegOwners.h"
#include "tests/output/MovieOutput.h"
#include "tests/support/TempDir.h"

namespace kestrel {
namespace {

using test::decodedSound;
using test::fieldOf;
using test::number;
using test::packetsOf;
using test::smallFormat;
using test::streamOf;
using test::TempDir;
using test::writeTone;

double toneAt(int index) { return 0.5 * std::sin(2 * std::numbers::pi * 441 * index / 44100); }

double energyOf(const std::vector<float>& samples) {
  double total = 0;
  for (const float sample : samples) total += static_cast<double>(sample) * sample;
  return total;
}

/// An output that has been started with one audio stream.
class SoundOutput : public LMFFMovieFileOutput {
 public:
  SoundOutput(const std::filesystem::path& path, int codec, int32_t rate = 44100) {
    LMFFMovieFileOutputFormat format = smallFormat(0, codec);
    format.sample_rate = rate;
    format.audio_bitrate = 128000;
    setMovieFormat(format);
    test::start(*this, path, false, true);
  }
};

TEST(LMFFMovieFileOutputSound, FramesAreEncodedWhenFullAndTheRestWaits) {
  const TempDir dir;
  SoundOutput output(dir / "a.mkv", AV_CODEC_ID_AAC);
  ASSERT_EQ(output.codecContext(output.audioStream())->frame_size, 1024);
  writeTone(output, 1500);
  EXPECT_EQ(output.audio_pts(), 1024);
  EXPECT_EQ(output.resample()->outputSamples(), 476);
  writeTone(output, 600, 1500);
  EXPECT_EQ(output.audio_pts(), 2048);
  EXPECT_EQ(output.resample()->outputSamples(), 52);
}

// AAC's priming comes first: its frames of 1024 samples begin 1024 samples early.
TEST(LMFFMovieFileOutputSound, FramesAreStampedBySamples) {
  const TempDir dir;
  SoundOutput output(dir / "a.mp4", AV_CODEC_ID_AAC);
  writeTone(output, 4 * 1024);
  output.stopOutput();
  EXPECT_EQ(fieldOf(packetsOf(dir / "a.mp4", "a"), "pts"),
            (std::vector<int64_t>{-1024, 0, 1024, 2048, 3072}));
}

TEST(LMFFMovieFileOutputSound, EncoderThatTakesAnyNumberGets1024Samples) {
  const TempDir dir;
  SoundOutput output(dir / "a.mkv", AV_CODEC_ID_PCM_S16LE);
  ASSERT_EQ(output.codecContext(output.audioStream())->frame_size, 0);
  writeTone(output, 2500);
  EXPECT_EQ(output.audio_pts(), 2048);
  EXPECT_EQ(output.resample()->outputSamples(), 452);
  output.stopOutput();
  const auto packets = packetsOf(dir / "a.mkv", "a");
  ASSERT_EQ(packets.size(), 2u);
  EXPECT_EQ(packets[0]["size"], "2048");
  EXPECT_EQ(packets[1]["size"], "2048");
}

TEST(LMFFMovieFileOutputSound, WithoutFinishingTheRestIsLost) {
  const TempDir dir;
  SoundOutput output(dir / "a.wav", AV_CODEC_ID_PCM_S16LE);
  writeTone(output, 1500);
  output.stopOutput();
  EXPECT_EQ(decodedSound(dir / "a.wav").size(), 1024u);
}

TEST(LMFFMovieFileOutputSound, FinishingKeepsEverySample) {
  const TempDir dir;
  SoundOutput output(dir / "a.wav", AV_CODEC_ID_PCM_S16LE);
  writeTone(output, 1500);
  output.finishAudio();
  EXPECT_EQ(output.audio_pts(), 1500);
  output.stopOutput();
  const std::vector<float> samples = decodedSound(dir / "a.wav");
  ASSERT_EQ(samples.size(), 1500u);
  for (int i = 0; i < 1500; i++) ASSERT_NEAR(samples[i], toneAt(i), 0.001) << i;
}

// 8 kHz are a fraction of the input's rate that makes a resampler hold samples back.
TEST(LMFFMovieFileOutputSound, FinishingFlushesTheResampler) {
  const TempDir dir;
  SoundOutput output(dir / "a.wav", AV_CODEC_ID_PCM_S16LE, 8000);
  writeTone(output, 44100);
  output.finishAudio();
  output.stopOutput();
  EXPECT_EQ(decodedSound(dir / "a.wav").size(), 8000u);
}

TEST(LMFFMovieFileOutputSound, FinishingTwiceOrWithoutSoundAddsNothing) {
  const TempDir dir;
  for (const auto& [name, codec] :
       {std::pair{"a.mp2", AV_CODEC_ID_MP2}, {"a.wav", AV_CODEC_ID_PCM_S16LE}}) {
    SoundOutput output(dir / name, codec);
    output.finishAudio();
    output.finishAudio();
    EXPECT_EQ(output.audio_pts(), 0);
    output.stopOutput();
    EXPECT_FALSE(output.lastError()) << output.lastError().message;
  }
  EXPECT_EQ(std::filesystem::file_size(dir / "a.mp2"), 0u);
  EXPECT_TRUE(decodedSound(dir / "a.wav").empty());
}

TEST(LMFFMovieFileOutputSound, NothingFollowsTheFinish) {
  const TempDir dir;
  SoundOutput output(dir / "a.wav", AV_CODEC_ID_PCM_S16LE);
  writeTone(output, 1100);
  output.finishAudio();
  writeTone(output, 5000);
  output.stopOutput();
  EXPECT_EQ(decodedSound(dir / "a.wav").size(), 1100u);
}

// Every encoder delays; what was written last must come out of it all the same.
TEST(LMFFMovieFileOutputSound, EndOfTheSoundSurvivesEveryEncoder) {
  const TempDir dir;
  for (const auto& [name, codec] : {std::pair{"aac.m4a", AV_CODEC_ID_AAC},
                                    {"mp3.mkv", AV_CODEC_ID_MP3},
                                    {"mp2.mkv", AV_CODEC_ID_MP2},
                                    {"ac3.mkv", AV_CODEC_ID_AC3},
                                    {"wma.wmv", AV_CODEC_ID_WMAV2},
                                    {"vorbis.mkv", AV_CODEC_ID_VORBIS},
                                    {"flac.mkv", AV_CODEC_ID_FLAC}}) {
    SoundOutput output(dir / name, codec);
    const std::vector<float> silence(2 * 8000);
    output.writeSample(silence.data(), 8000);
    writeTone(output, 1000);
    output.finishAudio();
    output.stopOutput();
    EXPECT_FALSE(output.lastError()) << name << ": " << output.lastError().message;
    EXPECT_NEAR(energyOf(decodedSound(dir / name)) / (0.125 * 1000), 1, 0.15) << name;
  }
}

// AAC's encoder refuses what is no number, and does not come back from a billion.
TEST(LMFFMovieFileOutputSound, DamagedSamplesDoNotStopAnEncoder) {
  const TempDir dir;
  const auto file = dir / "a.m4a";
  SoundOutput output(file, AV_CODEC_ID_AAC);
  constexpr int kCount = 20000;
  constexpr int kDamaged = 4000;
  std::vector<float> samples(2 * kCount);
  for (int i = 0; i < kCount; ++i)
    samples[2 * i] = samples[2 * i + 1] = static_cast<float>(toneAt(i));
  for (int i = 0; i < kDamaged; ++i) {
    samples[2 * i] = std::numeric_limits<float>::quiet_NaN();
    samples[2 * i + 1] = 1e9F * std::sin(0.05F * static_cast<float>(i));
  }
  samples[0] = std::numeric_limits<float>::infinity();
  output.writeSample(samples.data(), kCount);
  output.finishAudio();
  output.stopOutput();
  EXPECT_FALSE(output.lastError()) << output.lastError().message;
  const std::vector<float> decoded = decodedSound(file);
  ASSERT_GE(decoded.size(), static_cast<size_t>(kCount));
  for (int i = 12000; i < 13000; i++) ASSERT_NEAR(decoded[i], toneAt(i), 0.06) << i;
}

TEST(LMFFMovieFileOutputSound, NorDoThoseInAFrameOfTheHosts) {
  const TempDir dir;
  const auto file = dir / "a.m4a";
  SoundOutput output(file, AV_CODEC_ID_AAC);
  const AVCodecContext& encoder = *output.codecContext(output.audioStream());
  ASSERT_EQ(encoder.sample_fmt, AV_SAMPLE_FMT_FLTP);
  constexpr int kFrames = 20;
  for (int i = 0; i < kFrames; ++i) {
    const FramePtr frame = makeFrame();
    frame->format = encoder.sample_fmt;
    frame->sample_rate = encoder.sample_rate;
    frame->nb_samples = encoder.frame_size;
    frame->pts = int64_t{i} * encoder.frame_size;
    av_channel_layout_copy(&frame->ch_layout, &encoder.ch_layout);
    ASSERT_GE(av_frame_get_buffer(frame.get(), 0), 0);
    for (int channel = 0; channel < encoder.ch_layout.nb_channels; ++channel) {
      auto* const samples = reinterpret_cast<float*>(frame->extended_data[channel]);
      for (int k = 0; k < encoder.frame_size; ++k)
        samples[k] = static_cast<float>(toneAt(i * encoder.frame_size + k));
      if (i < 3) samples[100] = std::numeric_limits<float>::quiet_NaN();
      if (i < 3) samples[200] = 1e9F;
    }
    output.writeFrame(frame.get(), output.audioStream());
    if (i == 0) {
      EXPECT_TRUE(std::isnan(reinterpret_cast<float*>(frame->data[0])[100]));  // stays the host's
    }
  }
  while (output.writeFrame(nullptr, output.audioStream())) {
  }
  output.stopOutput();
  EXPECT_FALSE(output.lastError()) << output.lastError().message;
  const std::vector<float> decoded = decodedSound(file);
  ASSERT_GE(decoded.size(), static_cast<size_t>(15 * 1024));
  for (int i = 12000; i < 13000; i++) ASSERT_NEAR(decoded[i], toneAt(i), 0.06) << i;
}

// Samples that are kept as they are keep whatever they are.
TEST(LMFFMovieFileOutputSound, LosslessEncodersKeepWhatIsBeyondFullScale) {
  const TempDir dir;
  SoundOutput output(dir / "a.wav", AV_CODEC_ID_PCM_F32LE);
  const std::vector<float> samples(2 * 1024, 100.0F);
  output.writeSample(samples.data(), 1024);
  output.finishAudio();
  output.stopOutput();
  const std::vector<float> decoded = decodedSound(dir / "a.wav");
  ASSERT_GE(decoded.size(), 1024u);
  EXPECT_EQ(decoded[500], 100.0F);
}

// The tone's phase tells where the samples lie: one sample later differs by up to 0.03.
TEST(LMFFMovieFileOutputSound, DecodedSoundBeginsWhereItWasWritten) {
  const TempDir dir;
  SoundOutput output(dir / "a.m4a", AV_CODEC_ID_AAC);
  writeTone(output, 20000);
  output.finishAudio();
  output.stopOutput();
  const std::vector<float> samples = decodedSound(dir / "a.m4a");
  ASSERT_GE(samples.size(), 20000u);
  for (int i = 5000; i < 6000; i++) ASSERT_NEAR(samples[i], toneAt(i), 0.06) << i;
}

TEST(LMFFMovieFileOutputSound, LengthIsThatOfTheSamples) {
  const TempDir dir;
  for (const auto& [name, codec] : {std::pair{"a.mp4", AV_CODEC_ID_AAC},
                                    {"a.mov", AV_CODEC_ID_PCM_S16LE},
                                    {"a.flac", AV_CODEC_ID_FLAC}}) {
    SoundOutput output(dir / name, codec);
    writeTone(output, 66150);
    output.finishAudio();
    output.stopOutput();
    EXPECT_NEAR(number(streamOf(dir / name, "a")["duration"]), 1.5, 0.0001) << name;
  }
}

// What is too short for a frame becomes a short frame where the encoder takes one, and is filled up
// where it does not: FLAC and MP2.
TEST(LMFFMovieFileOutputSound, LastFrameIsShortWhereTheEncoderAllowsIt) {
  const TempDir dir;
  SoundOutput flac(dir / "a.mkv", AV_CODEC_ID_FLAC);
  writeTone(flac, 5000);
  flac.finishAudio();
  EXPECT_EQ(flac.audio_pts(), 5000);

  // 5000 samples and 481 of silence fill five frames of 1152.
  SoundOutput mp2(dir / "b.mkv", AV_CODEC_ID_MP2);
  ASSERT_EQ(mp2.codecContext(mp2.audioStream())->initial_padding, 481);
  writeTone(mp2, 5000);
  mp2.finishAudio();
  EXPECT_EQ(mp2.audio_pts(), 5 * 1152);
}

// Eight bytes make a sample of stereo floats.
TEST(LMFFMovieFileOutputSound, BytesAreCountedInWholeSamples) {
  const TempDir dir;
  SoundOutput output(dir / "a.wav", AV_CODEC_ID_PCM_S16LE);
  const std::vector<uint8_t> bytes(8 * 1300 + 5);
  output.writeAudioData(bytes);
  EXPECT_EQ(output.audio_pts() + output.resample()->outputSamples(), 1300);
}

TEST(LMFFMovieFileOutputSound, BytesOfAnUnusableFormatAreIgnored) {
  const TempDir dir;
  SoundOutput output(dir / "a.wav", AV_CODEC_ID_PCM_S16LE);
  output.setAudioInputFormat({AV_SAMPLE_FMT_FLT, 0, 44100});
  const std::vector<uint8_t> bytes(8 * 1300);
  output.writeAudioData(bytes);
  EXPECT_EQ(output.audio_pts(), 0);
}

TEST(LMFFMovieFileOutputSound, FrameIsReadOnlyWhenAllOfItIsThere) {
  const TempDir dir;
  SoundOutput output(dir / "a.wav", AV_CODEC_ID_PCM_S16LE);
  writeTone(output, 100);
  const FramePtr frame = makeFrame();
  frame->format = AV_SAMPLE_FMT_S16;
  frame->sample_rate = 44100;
  frame->nb_samples = 101;
  av_channel_layout_default(&frame->ch_layout, 1);
  ASSERT_EQ(av_frame_get_buffer(frame.get(), 0), 0);
  EXPECT_FALSE(output.readAudioFrameFromBuffer(frame.get()));
  EXPECT_EQ(frame->nb_samples, 101);
  EXPECT_EQ(output.resample()->outputSamples(), 100);
  frame->nb_samples = 60;
  EXPECT_TRUE(output.readAudioFrameFromBuffer(frame.get()));
  EXPECT_EQ(frame->nb_samples, 60);
  EXPECT_EQ(output.resample()->outputSamples(), 40);
  const auto* samples = reinterpret_cast<const int16_t*>(frame->data[0]);
  for (int i = 0; i < 60; i++) EXPECT_NEAR(samples[i] / 32768.0, toneAt(i), 0.001);
  EXPECT_FALSE(output.readAudioFrameFromBuffer(nullptr));
}

// 1024 / 44100 s = 23219.95 µs.
TEST(LMFFMovieFileOutputSound, OutputTimeCountsSamples) {
  const TempDir dir;
  SoundOutput output(dir / "a.mkv", AV_CODEC_ID_AAC);
  EXPECT_EQ(output.audio_output_time(), 0);
  writeTone(output, 1500);
  EXPECT_EQ(output.audio_output_time(), 23220);
}

TEST(LMFFMovieFileOutputSound, SamplesOfAnyFormatAreTaken) {
  const TempDir dir;
  LMFFMovieFileOutput output;
  output.setMovieFormat(smallFormat(0, AV_CODEC_ID_PCM_S16LE));
  output.setAudioInputFormat({AV_SAMPLE_FMT_S16, lm_get_default_channel_layout(1), 44100});
  test::start(output, dir / "a.wav", false, true);
  std::vector<int16_t> samples(3000);
  for (int i = 0; i < 3000; i++) samples[i] = static_cast<int16_t>(i);
  output.writeSample(samples.data(), 3000);
  output.finishAudio();
  output.stopOutput();
  const std::vector<float> decoded = decodedSound(dir / "a.wav");
  ASSERT_EQ(decoded.size(), 3000u);
  for (int i = 0; i < 3000; i++) ASSERT_EQ(decoded[i] * 32768, i);
}

TEST(LMFFMovieFileOutputSound, SoundWithoutAStreamIsIgnored) {
  const TempDir dir;
  LMFFMovieFileOutput output;
  writeTone(output, 5000);
  output.finishAudio();
  output.setMovieFormat(smallFormat(AV_CODEC_ID_MPEG4));
  test::start(output, dir / "a.mkv", true, false);
  writeTone(output, 5000);
  output.finishAudio();
  EXPECT_EQ(output.audio_pts(), 0);
}

TEST(LMFFMovieFileOutputSound, SoundBeforeTheStartIsIgnored) {
  LMFFMovieFileOutput output;
  output.setPath("/tmp/a.mkv");
  output.setMovieFormat(smallFormat(0, AV_CODEC_ID_AAC));
  output.openAudio();
  writeTone(output, 5000);
  output.finishAudio();
  EXPECT_EQ(output.audio_pts(), 0);
}

// Sonic has no other encoder than an experimental one.
TEST(LMFFMovieFileOutputSound, ExperimentalEncoderIsAllowed) {
  if (!avcodec_find_encoder(AV_CODEC_ID_SONIC)) GTEST_SKIP() << "no such encoder";
  LMFFMovieFileOutput output;
  output.setPath("/tmp/a.mkv");
  output.setMovieFormat(smallFormat(0, AV_CODEC_ID_SONIC));
  output.openAudio();
  ASSERT_TRUE(output.isAudioOpen()) << output.lastError().message;
  EXPECT_EQ(output.codecContext(output.audioStream())->strict_std_compliance,
            FF_COMPLIANCE_EXPERIMENTAL);
}

TEST(LMFFMovieFileOutputSound, FrameOfAnotherFormatIsRefused) {
  const auto frameOf = [](AVSampleFormat format, int channels, int rate) {
    FramePtr frame = makeFrame();
    frame->format = format;
    frame->sample_rate = rate;
    frame->nb_samples = 1024;
    av_channel_layout_default(&frame->ch_layout, channels);
    EXPECT_GE(av_frame_get_buffer(frame.get(), 0), 0);
    av_samples_set_silence(frame->extended_data, 0, 1024, channels, format);
    return frame;
  };
  const TempDir dir;
  LMFFMovieFileOutput output;
  LMFFMovieFileOutputFormat format = test::smallFormat(0, AV_CODEC_ID_AAC);
  format.channel_layout = lm_get_default_channel_layout(2);
  output.setMovieFormat(format);
  test::start(output, dir / "a.mkv", false, true);
  for (const FramePtr& other :
       {frameOf(AV_SAMPLE_FMT_FLT, 2, 44100), frameOf(AV_SAMPLE_FMT_S16, 2, 44100),
        frameOf(AV_SAMPLE_FMT_FLTP, 1, 44100), frameOf(AV_SAMPLE_FMT_FLTP, 2, 48000)})
    EXPECT_FALSE(output.writeFrame(other.get(), output.audioStream()));
  EXPECT_NE(output.lastError().message.find("2 channels, 44100 Hz, flt"), std::string::npos)
      << output.lastError().message;
  const FramePtr own = frameOf(AV_SAMPLE_FMT_FLTP, 2, 44100);
  own->pts = 0;
  output.writeFrame(own.get(), output.audioStream());
  output.stopOutput();
  EXPECT_FALSE(test::packetsOf(dir / "a.mkv", "a").empty());
}

}  // namespace
}  // namespace kestrel
