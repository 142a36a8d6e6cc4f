// How good pictures of another size are, and what they cost, beside libswscale's: so that neither
// is bought with the other.
//
//     kestrel_scaling
//
// For each size and scaler it prints the PSNR of luma against a sinc of 12 lobes in doubles, what
// is left of a zone plate where it is finer than the result can show (as a standard deviation,
// which should be 0), and the CPU time of a picture of 4:2:0.

#include <kestrel/ImageContext.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <functional>
#include <memory>
#include <numbers>
#include <utility>
#include <vector>

#include "tests/platform/image/SincScaled.h"

extern "C" {
#include <libswscale/swscale.h>
}

namespace {

using namespace kestrel;

struct Size2 {
  int width;
  int height;
};

/// A picture of 4:2:0 in 8 bits.
struct Picture {
  explicit Picture(Size2 wanted) : size(wanted) {
    for (size_t p = 0; p < 3; ++p)
      planes[p].resize(static_cast<size_t>(width(p)) *
                       static_cast<size_t>(p ? (size.height + 1) / 2 : size.height));
  }
  int width(size_t p) const { return p ? (size.width + 1) / 2 : size.width; }

  template <typename View>
  View view() {
    View result{};
    result.format.width = size.width;
    result.format.height = size.height;
    for (size_t p = 0; p < 3; ++p) result.planes[p] = {planes[p].data(), width(p), 1};
    return result;
  }

  Size2 size;
  std::vector<uint8_t> planes[3];
};

using Value = std::function<double(double x, double y)>;

Picture drawn(Size2 size, const Value& luma) {
  Picture picture(size);
  for (int y = 0; y < size.height; ++y) {
    for (int x = 0; x < size.width; ++x)
      picture.planes[0][static_cast<size_t>(y * size.width + x)] =
          static_cast<uint8_t>(std::lround(std::clamp(luma(x, y), 0.0, 255.0)));
  }
  for (size_t p = 1; p < 3; ++p) std::ranges::fill(picture.planes[p], uint8_t{128});
  return picture;
}

/// Rings that become finer to the right, edges in several directions, and slow gradients.
double detail(double x, double y) {
  const double rings = 0.5 + 0.5 * std::cos(0.0006 * (x * x + (y - 500) * (y - 500)));
  const int tile = static_cast<int>(x / 61) + static_cast<int>((x + 2 * y) / 173);
  const double slow = 0.5 + 0.4 * std::sin(x * 0.013) * std::cos(y * 0.021);
  return 20 + 200 * (x < 700 ? rings : tile % 2 == 0 ? 0.3 * slow : 0.35 + 0.6 * slow);
}

double psnr(const Picture& source, const Picture& result) {
  const std::vector<double> luma(source.planes[0].begin(), source.planes[0].end());
  const auto across =
      test::sincScaled(luma, source.size.width, source.size.height, result.size.width);
  const auto exact =
      test::sincScaled(across, source.size.height, result.size.width, result.size.height);
  double sum = 0;
  for (size_t i = 0; i < exact.size(); ++i) {
    const double difference = result.planes[0][i] - std::clamp(exact[i], 0.0, 255.0);
    sum += difference * difference;
  }
  return 10 * std::log10(255 * 255 * static_cast<double>(exact.size()) / sum);
}

/// Frequencies that rise to the right up to half a wave to the pixel: beyond 1.15 times what the
/// result can show nothing but grey should be left.
double aliasing(const Picture& result, int sourceWidth) {
  const double limit = 1.0 * result.size.width / sourceWidth * 1.15;
  double sum = 0;
  double square = 0;
  int count = 0;
  for (int y = 0; y < result.size.height; ++y) {
    for (int x = static_cast<int>(limit * result.size.width); x < result.size.width - 8; ++x) {
      const double value = result.planes[0][static_cast<size_t>(y * result.size.width + x)];
      sum += value;
      square += value * value;
      ++count;
    }
  }
  return count == 0 ? 0 : std::sqrt(std::max(0.0, square / count - sum / count * (sum / count)));
}

double cpuSeconds() {
  timespec now{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

/// The least CPU time of a call, milliseconds.
double milliseconds(const std::function<void()>& call) {
  double least = 1e9;
  for (int i = 0; i < 40; ++i) {
    const double before = cpuSeconds();
    call();
    least = std::min(least, cpuSeconds() - before);
  }
  return 1000 * least;
}

using Scale = std::function<void(Picture& from, Picture& to)>;

void print(const char* name, Size2 from, Size2 to, Picture& picture, Picture& plate,
           const Scale& scale) {
  Picture out(to);
  scale(plate, out);
  const double left = aliasing(out, from.width);
  scale(picture, out);
  const double decibels = psnr(picture, out);
  const double time = milliseconds([&] { scale(picture, out); });
  std::printf("  %-26s %7.2f dB  %7.2f  %7.2f ms\n", name, decibels, left, time);
}

Scale ours(const Scaler& scaler) {
  const auto context = std::make_shared<ImageContext>();
  context->setThreads(1);
  return [context, scaler](Picture& from, Picture& to) {
    const auto image = Image::fromPlanes(from.view<YUVPicture>())
                           ->resampledBy(scaler)
                           ->scaled(1.0 * to.size.width / from.size.width,
                                    1.0 * to.size.height / from.size.height);
    context->render(image, {{0, 0}, {1.0 * to.size.width, 1.0 * to.size.height}},
                    to.view<YUVTarget>());
  };
}

Scale theirs(Size2 from, Size2 to, int flags) {
  const std::shared_ptr<SwsContext> context(
      sws_getContext(from.width, from.height, AV_PIX_FMT_YUV420P, to.width, to.height,
                     AV_PIX_FMT_YUV420P, flags, nullptr, nullptr, nullptr),
      sws_freeContext);
  return [context](Picture& source, Picture& target) {
    const uint8_t* in[4] = {source.planes[0].data(), source.planes[1].data(),
                            source.planes[2].data(), nullptr};
    uint8_t* out[4] = {target.planes[0].data(), target.planes[1].data(), target.planes[2].data(),
                       nullptr};
    const int inStrides[4] = {source.width(0), source.width(1), source.width(2), 0};
    const int outStrides[4] = {target.width(0), target.width(1), target.width(2), 0};
    sws_scale(context.get(), in, inStrides, 0, source.size.height, out, outStrides);
  };
}

void compare(Size2 from, Size2 to) {
  Picture picture = drawn(from, detail);
  Picture plate = drawn(from, [&](double x, double) {
    return 128 + 100 * std::cos(std::numbers::pi / 2 * x * x / from.width);
  });
  std::printf("%dx%d to %dx%d          PSNR     aliases  CPU time\n", from.width, from.height,
              to.width, to.height);
  print("lanczos3", from, to, picture, plate, ours({Resampling::kLanczos3}));
  print("lanczos3,limited", from, to, picture, plate, ours({Resampling::kLanczos3, true}));
  print("catmull-rom", from, to, picture, plate, ours({Resampling::kCatmullRom}));
  print("mitchell", from, to, picture, plate, ours({Resampling::kMitchell}));
  print("bilinear", from, to, picture, plate, ours({Resampling::kBilinear}));
  print("area", from, to, picture, plate, ours({Resampling::kArea}));
  print("swscale bicubic", from, to, picture, plate, theirs(from, to, SWS_BICUBIC));
  print("swscale lanczos accurate", from, to, picture, plate,
        theirs(from, to, SWS_LANCZOS | SWS_ACCURATE_RND));
  Picture first(from);
  Picture second(from);
  const double twice = milliseconds([&] {
    for (size_t p = 0; p < 3; ++p) {
      std::memcpy(first.planes[p].data(), picture.planes[p].data(), first.planes[p].size());
      std::memcpy(second.planes[p].data(), first.planes[p].data(), first.planes[p].size());
    }
  });
  std::printf("  the source copied twice                         %7.2f ms\n", twice);
}

}  // namespace

int main() {
  compare({1920, 1080}, {1280, 720});
  compare({1920, 1080}, {854, 480});
  compare({1280, 720}, {1920, 1080});
}
