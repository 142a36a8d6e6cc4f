// Single kernels of the engine. Where a kernel only moves memory, the same number of bytes moved by
// `memcpy` stands beside it as the bound.

#include <benchmark/benchmark.h>
#include <kestrel/LMFFAudioResample.h>
#include <kestrel/LMFFImageColorspaceConverter.h>
#include <kestrel/LMFIFODataBuffer.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include "support/FFmpegOwners.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/imgutils.h>
#include <libavutil/samplefmt.h>
}

namespace {

using namespace kestrel;

constexpr int kBlockFrames = 1024;  // what an AAC packet decodes to
constexpr int kStereo = 2;
constexpr int kWidth = 1920;
constexpr int kHeight = 1080;

std::vector<float> tone(int frames) {
  std::vector<float> samples(static_cast<size_t>(frames) * kStereo);
  for (size_t i = 0; i < samples.size(); ++i)
    samples[i] = static_cast<float>(0.5 * std::sin(0.05 * static_cast<double>(i / kStereo)));
  return samples;
}

/// Bytes a second: what goes in, once.
void countBytes(benchmark::State& state, size_t bytesEach) {
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(bytesEach));
}

void copyMemory(benchmark::State& state) {
  const std::vector<uint8_t> source(static_cast<size_t>(state.range(0)), 1);
  std::vector<uint8_t> target(source.size());
  for (auto _ : state) {
    std::memcpy(target.data(), source.data(), source.size());
    benchmark::DoNotOptimize(target.data());
    benchmark::ClobberMemory();
  }
  countBytes(state, source.size());
}
BENCHMARK(copyMemory)
    ->ArgName("bytes")
    ->Arg(kBlockFrames* kStereo* static_cast<int>(sizeof(float)))
    ->Arg(kWidth* kHeight * 3 / 2)
    ->Arg(kWidth* kHeight * 4);

void passThroughFifo(benchmark::State& state) {
  const auto block = tone(kBlockFrames);
  const size_t bytes = block.size() * sizeof(float);
  std::vector<uint8_t> out(bytes);
  LMFIFODataBuffer fifo;
  for (auto _ : state) {
    fifo.appendBytes(block.data(), bytes);
    benchmark::DoNotOptimize(fifo.readBytes(out.data(), bytes));
  }
  countBytes(state, bytes);
}
BENCHMARK(passThroughFifo);

/// Interleaved float stereo from a sample rate to the engine's own.
void resample(benchmark::State& state) {
  const auto block = tone(kBlockFrames);
  std::vector<float> out(block.size() * 2);
  LMFFAudioResample resampler;
  LMFFAudioFormat in = lm_get_default_audio_format();
  in.sample_rate = static_cast<int32_t>(state.range(0));
  resampler.convertFormat(in, lm_get_default_audio_format());
  for (auto _ : state) {
    resampler.writeSample(block.data(), kBlockFrames);
    resampler.readSample(out.data(), resampler.outputSamples());
    benchmark::DoNotOptimize(out.data());
  }
  countBytes(state, block.size() * sizeof(float));
  state.SetItemsProcessed(state.iterations() * kBlockFrames);
}
BENCHMARK(resample)->ArgName("Hz")->Arg(44100)->Arg(48000);

/// A picture with some detail in its first plane.
FramePtr makePicture(AVPixelFormat format) {
  FramePtr frame = makeFrame();
  frame->format = format;
  frame->width = kWidth;
  frame->height = kHeight;
  if (av_frame_get_buffer(frame.get(), 0) < 0) return nullptr;
  for (int plane = 0; plane < 4 && frame->data[plane]; ++plane) {
    const bool isChroma = plane > 0;
    const int rows = isChroma ? kHeight / 2 : kHeight;
    for (int y = 0; y < rows; ++y) {
      uint8_t* row = frame->data[plane] + static_cast<ptrdiff_t>(y) * frame->linesize[plane];
      for (int x = 0; x < frame->linesize[plane]; ++x)
        row[x] = isChroma ? 128 : static_cast<uint8_t>(16 + (x * 3 + y * 5) % 200);
    }
  }
  return frame;
}

/// A 1080p picture into another format, or size, or neither.
void convertPicture(benchmark::State& state, AVPixelFormat from, AVPixelFormat to, int width,
                    int height) {
  const FramePtr picture = makePicture(from);
  if (!picture) return state.SkipWithError("no memory");
  LMFFImageColorspaceConverter converter;
  converter.setOutputFormat({to, width, height});
  for (auto _ : state) {
    converter.convertFrame(picture.get());
    benchmark::DoNotOptimize(converter.outputFrame()->data[0]);
  }
  const int bytes = av_image_get_buffer_size(from, kWidth, kHeight, 1);
  if (from != to || width != kWidth) countBytes(state, static_cast<size_t>(bytes));
}
BENCHMARK_CAPTURE(convertPicture, unchanged, AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUV420P, kWidth,
                  kHeight);
BENCHMARK_CAPTURE(convertPicture, toRgba, AV_PIX_FMT_YUV420P, AV_PIX_FMT_RGBA, kWidth, kHeight)
    ->UseRealTime();
BENCHMARK_CAPTURE(convertPicture, fromRgba, AV_PIX_FMT_RGBA, AV_PIX_FMT_YUV420P, kWidth, kHeight)
    ->UseRealTime();
BENCHMARK_CAPTURE(convertPicture, to720p, AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUV420P, 1280, 720)
    ->UseRealTime();

}  // namespace
