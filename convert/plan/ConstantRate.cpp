#include "convert/plan/ConstantRate.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "support/FFmpegOwners.h"

namespace kestrel {

namespace {

constexpr Rational kUsualRates[] = {
    {1, 1},        {2, 1},        {5, 1},  {8, 1},   {10, 1},        {12, 1}, {25, 2}, {15, 1},
    {20, 1},       {24000, 1001}, {24, 1}, {25, 1},  {30000, 1001},  {30, 1}, {48, 1}, {50, 1},
    {60000, 1001}, {60, 1},       {90, 1}, {100, 1}, {120000, 1001}, {120, 1}};

/// Containers that count milliseconds are off by up to one between two pictures; microseconds.
constexpr double kRounding = 1100;

double tickOf(Rational rate) { return 1e6 * rate.den / rate.num; }

/// Whether pictures fit one by one into the ticks of a rate.
bool holdsAll(std::span<const int64_t> times, double tick) {
  int64_t place = -1;
  for (const int64_t time : times) {
    const auto since = static_cast<double>(time - times.front());
    place = std::max(place + 1, static_cast<int64_t>((since + kRounding) / tick));
    if (static_cast<double>(place) * tick - since > tick + kRounding) return false;
  }
  return true;
}

}  // namespace

size_t picturesLostAt(std::span<const int64_t> times, Rational rate) {
  if (times.empty()) return 0;
  const double tick = tickOf(rate);
  // The tick in whose middle a picture is the one to be seen first.
  const auto tickFrom = [&](int64_t time) {
    return static_cast<int64_t>(
        std::ceil((static_cast<double>(time - times.front()) - kRounding) / tick - 0.5));
  };
  size_t lost = 0;
  for (size_t i = 0; i + 1 < times.size(); ++i)
    if (tickFrom(times[i + 1]) == tickFrom(times[i])) ++lost;
  return lost;
}

std::optional<Rational> rateForAll(std::span<const int64_t> times, Rational own,
                                   const std::optional<Rational>& most,
                                   const PictureRates& possible) {
  std::vector<Rational> rates(std::begin(kUsualRates), std::end(kUsualRates));
  rates.push_back(own);
  std::erase_if(rates, [&](Rational rate) { return !possible.contains(rate); });
  const auto isLower = [](Rational a, Rational b) { return av_cmp_q(toAV(a), toAV(b)) < 0; };
  std::ranges::sort(rates, isLower);
  for (const Rational rate : rates)
    if (!(most && isLower(*most, rate)) && holdsAll(times, tickOf(rate))) return rate;
  return std::nullopt;
}

std::string oneRate(std::string_view container, Rational rate) {
  return fmt::format("{} has one rate, {:.5g} a second", container, av_q2d(toAV(rate)));
}

std::string picturesLost(size_t lost, size_t all, std::string_view why) {
  return fmt::format("{} of {}: {}", lost, all, why);
}

bool comeFasterThan(std::span<const int64_t> times, Rational rate) {
  for (size_t i = 1; i < times.size(); ++i)
    if (static_cast<double>(times[i] - times[i - 1]) < tickOf(rate) - kRounding) return true;
  return false;
}

}  // namespace kestrel
