// The image engine on pictures of 1920 x 1080, one thread unless it is said. The same bytes moved
// by `memcpy`, and the scaler of libswscale, stand beside it.

#include <benchmark/benchmark.h>
#include <kestrel/FilterRegistry.h>
#include <kestrel/ImageContext.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <memory>
#include <numbers>
#include <vector>

extern "C" {
#include <libswscale/swscale.h>
}

namespace {

using namespace kestrel;

using ImagePointer = std::shared_ptr<const Image>;

constexpr int kWidth = 1920;
constexpr int kHeight = 1080;
constexpr Rect kFull{{0, 0}, {kWidth, kHeight}};
constexpr Rect kSmall{{0, 0}, {1280, 720}};

/// Detail of every size.
std::vector<uint8_t> makePixels() {
  std::vector<uint8_t> pixels(size_t{kWidth} * kHeight * 4);
  for (size_t y = 0; y < kHeight; ++y) {
    for (size_t x = 0; x < kWidth; ++x) {
      uint8_t* p = &pixels[(y * kWidth + x) * 4];
      p[0] = static_cast<uint8_t>(x * 255 / kWidth);
      p[1] = static_cast<uint8_t>((x * x + y * y) >> 6);
      p[2] = static_cast<uint8_t>((x * 7919u ^ y * 104729u) >> 3);
      p[3] = 255;
    }
  }
  return pixels;
}

const std::vector<uint8_t>& sourcePixels() {
  static const std::vector<uint8_t> pixels = makePixels();
  return pixels;
}

ImagePointer source(Image::Alpha alpha = Image::Alpha::kOpaque) {
  return Image::fromBitmap(
      BitmapImage::borrowing(sourcePixels().data(), kWidth, kHeight, kWidth * 4), alpha);
}

ImagePointer filtered(const char* name, const ImagePointer& input,
                      const std::vector<std::pair<std::string_view, FilterValue>>& settings) {
  const auto filter = FilterRegistry::filterWithName(name);
  for (const auto& [key, value] : settings) filter->setValue(value, key);
  filter->setValue(input, kCIInputImageKey);
  return filter->outputImage();
}

ImagePointer overBlack(const ImagePointer& input) {
  const auto over = FilterRegistry::filterWithName("CISourceOverCompositing");
  over->setValue(input, kCIInputImageKey);
  over->setValue(Image::fromColor(Color::black()), kCIInputBackgroundImageKey);
  return over->outputImage();
}

ImagePointer colored(const ImagePointer& input) {
  const ImagePointer controlled = filtered(
      "CIColorControls", input, {{kCIInputSaturationKey, 1.3}, {kCIInputContrastKey, 1.1}});
  const ImagePointer turned = filtered("CIHueAdjust", controlled, {{kCIInputAngleKey, 0.4}});
  return filtered("CIColorMonochrome", turned,
                  {{kCIInputColorKey, Color{0.6, 0.6, 0.6, 1}}, {kCIInputIntensityKey, 0.4}});
}

ImagePointer fitted(const ImagePointer& input) { return input->scaled(2.0 / 3, 2.0 / 3); }

ImagePointer turned() {
  return source()
      ->cropped({{96, 54}, {1728, 972}})
      ->translated(-960, -540)
      ->transformed(AffineTransform::rotation(7 * std::numbers::pi / 180))
      ->scaled(0.74, 0.74)
      ->translated(640, 360);
}

void render(benchmark::State& state, const ImagePointer& image, const Rect& bounds,
            int threads = 1) {
  ImageContext context;
  context.setThreads(threads);
  const int width = static_cast<int>(bounds.size.width);
  std::vector<uint8_t> out(static_cast<size_t>(width) * 4 *
                           static_cast<size_t>(bounds.size.height));
  for (auto _ : state) {
    context.render(image, bounds, out.data(), width * 4);
    benchmark::ClobberMemory();
  }
}

void copy(benchmark::State& state) {
  std::vector<uint8_t> out(sourcePixels().size());
  for (auto _ : state) {
    std::memcpy(out.data(), sourcePixels().data(), out.size());
    benchmark::ClobberMemory();
  }
}
BENCHMARK(copy)->Unit(benchmark::kMillisecond);

void swscaleBilinear(benchmark::State& state) {
  const std::unique_ptr<SwsContext, void (*)(SwsContext*)> context(
      sws_getContext(kWidth, kHeight, AV_PIX_FMT_RGBA, 1280, 720, AV_PIX_FMT_RGBA, SWS_BILINEAR,
                     nullptr, nullptr, nullptr),
      sws_freeContext);
  std::vector<uint8_t> out(size_t{1280} * 720 * 4);
  const uint8_t* from[] = {sourcePixels().data()};
  uint8_t* to[] = {out.data()};
  const int fromStride[] = {kWidth * 4};
  const int toStride[] = {1280 * 4};
  for (auto _ : state) sws_scale(context.get(), from, fromStride, 0, kHeight, to, toStride);
}
BENCHMARK(swscaleBilinear)->Unit(benchmark::kMillisecond);

#define RENDER(name, image, bounds)                                 \
  void name(benchmark::State& state) {                              \
    render(state, image, bounds, static_cast<int>(state.range(0))); \
  }                                                                 \
  BENCHMARK(name)->ArgName("threads")->Arg(1)->Arg(2)->UseRealTime()->Unit(benchmark::kMillisecond)

RENDER(neutral, overBlack(source()), kFull);
RENDER(straightOverBlack, overBlack(source(Image::Alpha::kStraight)), kFull);
RENDER(fit, overBlack(fitted(source())), kSmall);
RENDER(fitWithAlpha, overBlack(fitted(source(Image::Alpha::kStraight))), kSmall);
RENDER(fitAndColor, overBlack(colored(fitted(source()))), kSmall);
RENDER(enlarge, source()->scaled(2, 2), (Rect{{0, 0}, {3840, 2160}}));
RENDER(turn7, overBlack(colored(turned())), kSmall);
RENDER(turn90, overBlack(source()->transformed({0, 2.0 / 3, -2.0 / 3, 0, 720, 0})),
       (Rect{{0, 0}, {720, 1280}}));
RENDER(thumbnail, source()->scaled(1.0 / 6, 1.0 / 6), (Rect{{0, 0}, {320, 180}}));
RENDER(color, colored(source()), kFull);
RENDER(blur, overBlack(filtered("CIGaussianBlur", source(), {{kCIInputRadiusKey, 10.0}})), kFull);
RENDER(blur40, overBlack(filtered("CIGaussianBlur", source(), {{kCIInputRadiusKey, 40.0}})), kFull);
RENDER(bloom,
       filtered("CIBloom", source(), {{kCIInputRadiusKey, 40.0}, {kCIInputIntensityKey, 1.0}}),
       kFull);
RENDER(gloom,
       filtered("CIGloom", source(), {{kCIInputRadiusKey, 30.0}, {kCIInputIntensityKey, 1.0}}),
       kFull);
RENDER(sharpen, filtered("CISharpenLuminance", source(), {{kCIInputSharpnessKey, 10.0}}), kFull);
RENDER(spotLight, filtered("CISpotLight", source(), {}), kFull);
RENDER(lineScreen, filtered("CILineScreen", source(), {}), kFull);
RENDER(hexagons, filtered("CIHexagonalPixellate", source(), {}), kFull);

/// Planes of 4:2:0 in and out, as a conversion has them.
struct Planes {
  Planes(int width, int height)
      : samples(static_cast<size_t>(width) * static_cast<size_t>(height) * 3 / 2) {
    format.width = width;
    format.height = height;
    for (size_t i = 0; i < samples.size(); ++i)
      samples[i] = static_cast<uint8_t>(16 + (i * 2654435761u >> 16) % 200);
  }
  YUVPicture picture() const {
    const ptrdiff_t w = format.width;
    const uint8_t* const y = samples.data();
    const uint8_t* const cb = y + w * format.height;
    const uint8_t* const cr = cb + w * format.height / 4;
    return {format, {{{y, w, 1}, {cb, w / 2, 1}, {cr, w / 2, 1}, {}}}, nullptr};
  }
  YUVTarget target() {
    const ptrdiff_t w = format.width;
    uint8_t* const y = samples.data();
    uint8_t* const cb = y + w * format.height;
    uint8_t* const cr = cb + w * format.height / 4;
    return {format, {{{y, w, 1}, {cb, w / 2, 1}, {cr, w / 2, 1}}}};
  }
  YUVFormat format;
  std::vector<uint8_t> samples;
};

void planesToPlanes(benchmark::State& state, bool isTurned) {
  const Planes in(kWidth, kHeight);
  Planes out(1280, 720);
  ImagePointer image = Image::fromPlanes(in.picture());
  image = isTurned ? image->translated(-960, -540)
                         ->transformed(AffineTransform::rotation(3 * std::numbers::pi / 180))
                         ->scaled(0.66, 0.66)
                         ->translated(640, 360)
                   : fitted(image);
  image = overBlack(colored(image));
  ImageContext context;
  context.setThreads(1);
  for (auto _ : state) context.render(image, kSmall, out.target());
}
BENCHMARK_CAPTURE(planesToPlanes, fit, false)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(planesToPlanes, turn3, true)->Unit(benchmark::kMillisecond);

}  // namespace
