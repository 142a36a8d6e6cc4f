// How far HDR that is brought to SDR lies from the formulas in double precision (CIEDE2000), still
// by still, and what it costs: pictures of 10 bits in 4:2:0 brought to 8, beside libavfilter's
// `zscale,tonemap,zscale` on the same picture, processor time and time on all threads.
//
//     kestrel_tonemapping [PICTURES]

#include <kestrel/ImageContext.h>
#include <kestrel/ToneMapping.h>

#include <fmt/format.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <vector>

#include "support/FFmpegOwners.h"
#include "support/FilterChain.h"
#include "support/FrameLight.h"
#include "support/FramePlanes.h"
#include "tests/platform/image/HdrStills.h"

namespace {

using namespace kestrel;

constexpr int kWidth = 3840;
constexpr int kHeight = 2160;

double cpuSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& t) {
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) / 1e6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

FramePtr frameOf(AVPixelFormat format) {
  FramePtr frame = makeFrame();
  frame->format = format;
  frame->width = kWidth;
  frame->height = kHeight;
  if (av_frame_get_buffer(frame.get(), 0) < 0) throw std::bad_alloc();
  return frame;
}

/// A picture of PQ with all kinds of light and colours.
FramePtr source() {
  FramePtr frame = frameOf(AV_PIX_FMT_YUV420P10);
  frame->colorspace = AVCOL_SPC_BT2020_NCL;
  frame->color_trc = AVCOL_TRC_SMPTE2084;
  frame->color_primaries = AVCOL_PRI_BT2020;
  frame->color_range = AVCOL_RANGE_MPEG;
  for (int p = 0; p < 3; ++p) {
    for (int row = 0; row < (p ? kHeight / 2 : kHeight); ++row) {
      auto* const line = reinterpret_cast<uint16_t*>(frame->data[p] + row * frame->linesize[p]);
      for (int x = 0; x < (p ? kWidth / 2 : kWidth); ++x) {
        const double wave = std::sin(x / (90.0 + 40 * p)) * std::cos(row / (70.0 - 10 * p));
        line[x] = static_cast<uint16_t>(p ? 512 + 70 * wave : 380 + 280 * wave);
      }
    }
  }
  return frame;
}

template <typename Call>
double print(const char* name, int pictures, const Call& call) {
  call();  // tables and memory are made once
  const auto start = std::chrono::steady_clock::now();
  const double before = cpuSeconds();
  for (int i = 0; i < pictures; ++i) call();
  const double cpu = 1000 * (cpuSeconds() - before) / pictures;
  const std::chrono::duration<double, std::milli> wall = std::chrono::steady_clock::now() - start;
  std::printf("  %-22s CPU %7.1f ms   wall %7.1f ms\n", name, cpu, wall.count() / pictures);
  return cpu;
}

void printDifferences() {
  std::printf("from the formulas, CIEDE2000      mean    worst\n");
  for (test::HdrStill& still : test::hdrStills()) {
    const auto [mean, worst] = test::differenceFromModel(still);
    std::printf("  %-28s %7.2f  %7.2f\n", still.name.c_str(), mean, worst);
  }
}

void run(int pictures) {
  const FramePtr hdr = source();
  const FramePtr sdr = frameOf(AV_PIX_FMT_YUV420P);
  sdr->colorspace = AVCOL_SPC_BT709;
  const std::shared_ptr<const AVFrame> lent(hdr.get(), [](const AVFrame*) {});
  const auto image = toneMapped(Image::fromPlanes(*yuvPictureOf(lent)), *hdrLightOf(*hdr));
  const auto target = yuvTargetOf(*sdr);
  const ImageContext context;
  const auto chain = FilterChain::make(
      {{"buffer", fmt::format("video_size={}x{}:pix_fmt={}:time_base=1/25", kWidth, kHeight,
                              static_cast<int>(AV_PIX_FMT_YUV420P10))},
       {"zscale", "t=linear:npl=203:tin=smpte2084:pin=bt2020:min=bt2020nc:rin=limited"},
       {"format", "pix_fmts=gbrpf32le"},
       {"zscale", "p=bt709"},
       {"tonemap", "tonemap=mobius:desat=0"},
       {"zscale", "t=bt709:m=bt709:r=limited"},
       {"format", "pix_fmts=yuv420p"},
       {"buffersink", ""}});
  if (!chain) throw std::runtime_error("libavfilter has no zscale");

  std::printf("2160p of PQ to 8 bits of SDR\n");
  const double own = print("kestrel", pictures, [&] {
    if (!context.render(image, {{0, 0}, {kWidth, kHeight}}, *target))
      throw std::runtime_error("the picture cannot be drawn");
  });
  const FramePtr result = makeFrame();
  const double other = print("zscale,tonemap,zscale", pictures, [&] {
    if (!chain->push(hdr.get()) || !chain->pull(*result))
      throw std::runtime_error("libavfilter gives no picture");
  });
  std::printf("  %.2f of its CPU time\n", own / other);
}

}  // namespace

int main(int count, char** arguments) {
  try {
    printDifferences();
    run(count > 1 ? std::max(std::atoi(arguments[1]), 1) : 10);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "kestrel_tonemapping: %s\n", failure.what());
    return 1;
  }
  return 0;
}
