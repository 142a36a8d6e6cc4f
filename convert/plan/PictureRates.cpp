#include "convert/plan/PictureRates.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <span>
#include <string_view>

#include "convert/settings/Require.h"
#include "support/FFmpegOwners.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace kestrel {

namespace {

/// The values of picture_rate in ISO/IEC 11172-2. The encoder's own list has more, which players
/// need not know and it refuses.
constexpr AVRational kMpeg1Rates[] = {{24000, 1001}, {24, 1}, {25, 1},       {30000, 1001},
                                      {30, 1},       {50, 1}, {60000, 1001}, {60, 1}};

/// The content package rates of SMPTE ST 326.
constexpr AVRational kPackageRates[] = {
    {24000, 1001}, {24, 1},       {25, 1}, {30000, 1001}, {30, 1},  {48000, 1001}, {48, 1},
    {50, 1},       {60000, 1001}, {60, 1}, {72000, 1001}, {72, 1},  {75, 1},       {90000, 1001},
    {90, 1},       {96000, 1001}, {96, 1}, {100, 1},      {120, 1}, {120000, 1001}};

/// A named rate is rounded by less than this part of it.
constexpr double kRounding = 0.001;

/// Empty where any rate will do.
std::span<const AVRational> ratesOf(const AVCodec& encoder) {
  if (encoder.id == AV_CODEC_ID_MPEG1VIDEO) return kMpeg1Rates;
  const AVRational* const known = encoder.supported_framerates;
  size_t count = 0;
  while (known && known[count].num > 0) ++count;
  return {known, count};
}

std::span<const AVRational> ratesOf(const AVOutputFormat& container) {
  const bool isMxf = std::string_view(container.name).starts_with("mxf");
  return isMxf ? std::span<const AVRational>(kPackageRates) : std::span<const AVRational>();
}

bool isAmong(std::span<const AVRational> rates, AVRational rate) {
  return rates.empty() ||
         std::ranges::any_of(rates, [&](AVRational known) { return av_cmp_q(known, rate) == 0; });
}

}  // namespace

PictureRates::PictureRates(const AVCodec& encoder, const AVOutputFormat& container)
    : encoder_(encoder), container_(container) {}

bool PictureRates::contains(Rational rate) const {
  return isAmong(ratesOf(encoder_), toAV(rate)) && isAmong(ratesOf(container_), toAV(rate));
}

/// None where any rate will do.
template <typename Visit>
void PictureRates::forEach(Visit visit) const {
  const auto own = ratesOf(encoder_);
  for (const AVRational rate : own.empty() ? ratesOf(container_) : own)
    if (contains(fromAV(rate))) visit(rate);
}

Rational PictureRates::nearest(Rational rate) const {
  if (contains(rate)) return rate;
  std::optional<AVRational> best;
  forEach([&](AVRational known) {
    if (!best || av_nearer_q(toAV(rate), known, *best) > 0) best = known;
  });
  return best ? fromAV(*best) : rate;
}

std::optional<Rational> PictureRates::upTo(Rational most) const {
  if (contains(most)) return most;
  std::optional<AVRational> best;
  forEach([&](AVRational known) {
    if (av_cmp_q(known, toAV(most)) < 0 && (!best || av_cmp_q(known, *best) > 0)) best = known;
  });
  return best ? std::optional(fromAV(*best)) : std::nullopt;
}

Rational PictureRates::asked(Rational rate) const {
  const Rational near = nearest(rate);
  const double wanted = av_q2d(toAV(rate));
  const double found = av_q2d(toAV(near));
  if (std::abs(found - wanted) > kRounding * wanted)
    refuse("fps", fmt::format("{} has no {:.5g} pictures a second in {}, the nearest are {:.5g}",
                              encoder_.name, wanted, container_.name, found));
  return near;
}

Rational PictureRates::limited(Rational most) const {
  if (const auto rate = upTo(most)) return *rate;
  refuse("maxFps", fmt::format("{} has no {:.5g} pictures a second in {} nor fewer, but {:.5g}",
                               encoder_.name, av_q2d(toAV(most)), container_.name,
                               av_q2d(toAV(nearest(most)))));
}

}  // namespace kestrel
