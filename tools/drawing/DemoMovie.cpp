#include "tools/drawing/DemoMovie.h"

#include <kestrel/BitmapContext.h>
#include <kestrel/LMFFFormat.h>
#include <kestrel/LMFFMovieFileOutput.h>
#include <kestrel/LMFFVideoColor.h>

#include <cmath>
#include <cstdint>
#include <new>
#include <numbers>
#include <vector>

#include "tools/drawing/DemoPicture.h"
#include "tools/terminal/Interrupt.h"
#include "tools/terminal/Outcome.h"

using namespace kestrel;

namespace {

constexpr int kWidth = 1280;
constexpr int kHeight = 720;
constexpr int kFramesPerSecond = 25;
constexpr int kSeconds = 10;
constexpr int kSampleRate = 44100;
constexpr int kSamplesPerFrame = kSampleRate / kFramesPerSecond;
static_assert(kSamplesPerFrame * kFramesPerSecond == kSampleRate, "sound and picture end together");

/// A soft tone, and over it a short, dying tick at the start of each second.
float sound(int64_t sample) {
  constexpr double kTone = 220;
  constexpr double kTick = 1000;
  constexpr double kTickSeconds = 0.01;  // in which it falls to a third
  const auto sine = [](double frequency, double time) {
    return std::sin(2 * std::numbers::pi * frequency * time);
  };
  const double time = static_cast<double>(sample) / kSampleRate;
  const double sinceTick = static_cast<double>(sample % kSampleRate) / kSampleRate;
  return static_cast<float>(0.02 * sine(kTone, time) +
                            0.7 * std::exp(-sinceTick / kTickSeconds) * sine(kTick, sinceTick));
}

/// The sound that belongs to one picture: stereo, both sides alike.
void fillSound(std::vector<float>& samples, int64_t frame) {
  for (int64_t i = 0; i < kSamplesPerFrame; ++i)
    samples[2 * i] = samples[2 * i + 1] = sound(frame * kSamplesPerFrame + i);
}

void requireNoError(const LMFFMovieFileOutput& output, const std::string& path) {
  if (interrupted()) throw Failure::interrupted();
  if (const auto error = output.lastError()) {
    throw failed("cannot write '" + path + "': " + error.message);
  }
}

void start(LMFFMovieFileOutput& output, const std::string& path) {
  auto format = lm_get_default_movie_file_ouput_format();
  format.width = kWidth;
  format.height = kHeight;
  format.framerate = kFramesPerSecond;
  format.frameTime = 1;
  format.video_codec = lm_get_codec_id_by_name("ffv1");
  format.audio_codec = lm_get_codec_id_by_name("pcm_s16le");
  format.sample_rate = kSampleRate;
  output.setMovieFormat(format);
  output.setOutputColor(kBt709);
  output.setMetadata({{"title", "Kestrel demo"}});
  output.setInterrupt(interrupted);
  output.setPath(path);
  output.openVideo();
  output.openAudio();
  const bool isOpen = output.isVideoOpen() && output.isAudioOpen() && output.startOutput();
  requireNoError(output, path);
  if (!isOpen) throw failed("cannot write '" + path + "'");
}

}  // namespace

void writeDemoMovie(const std::string& path) {
  LMFFMovieFileOutput output;
  start(output, path);
  const auto surface = output.createCGContext();
  if (!surface || !surface->data()) throw std::bad_alloc();
  const DemoPicture picture(kWidth, kHeight, kFramesPerSecond);
  std::vector<float> samples(2 * kSamplesPerFrame);
  for (int64_t frame = 0; frame < kSeconds * kFramesPerSecond; ++frame) {
    picture.draw(*surface, frame);
    output.writeCGContext(surface.get());
    fillSound(samples, frame);
    output.writeSample(samples.data(), kSamplesPerFrame);
    requireNoError(output, path);
  }
  output.finishAudio();
  output.stopOutput();
  requireNoError(output, path);
}
