#include "convert/settings/Require.h"

#include <kestrel/EffectManager.h>
#include <kestrel/LMFFFormat.h>

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include <kestrel/convert/Disc.h>
#include <kestrel/convert/Failure.h>
#include <kestrel/convert/Text.h>

namespace kestrel {

namespace {

// LUFS: what is quieter counts as silence, and louder sound hardly stays below full scale.
constexpr double kQuietestSound = -70;
constexpr double kLoudestSound = -5;

constexpr int kLongestSide = 65535;  // pixels
constexpr int kFastestRate = 1000;   // pictures per second
constexpr double kNarrowest = 0.01;  // width / height
constexpr double kWidest = 100;
constexpr int kLowestSampleRate = 1000;  // Hz
constexpr int kHighestSampleRate = 768000;
constexpr double kLoudest = 1000;  // 60 dB: more than any recording is too quiet by

}  // namespace

void refuse(const std::string& setting, const std::string& why) {
  throw Failure::settings(setting + ": " + why, setting);
}

void refuseBeside(const std::string& setting, const std::string& other) {
  refuse(setting, other + " says the same thing; give one of them");
}

void requireChoice(const std::string& setting, const TrackChoice& choice) {
  using Kind = TrackChoice::Kind;
  requireOneOf(setting, choice.kind, {Kind::kUsual, Kind::kAll, Kind::kNumbers, Kind::kLanguage});
  if (choice.kind == Kind::kNumbers && choice.numbers.empty())
    refuse(setting, "no track is numbered");
  if (choice.kind == Kind::kLanguage && choice.language.empty())
    refuse(setting, "no language is named");
}

void requireAction(const std::string& setting, StreamAction action) {
  requireOneOf(setting, action, {StreamAction::kNone, StreamAction::kEncode, StreamAction::kCopy});
}

void requireDeinterlacing(const std::string& setting, Deinterlacing when) {
  requireOneOf(
      setting, when,
      {Deinterlacing::kOff, Deinterlacing::kAuto, Deinterlacing::kOn, Deinterlacing::kCombed});
}

void requireDenoising(const std::string& setting, Denoising strength) {
  requireOneOf(setting, strength,
               {Denoising::kOff, Denoising::kLight, Denoising::kMedium, Denoising::kStrong});
}

void requireTitle(const std::optional<int>& title) {
  if (title && *title < 1 && *title != kMainTitle)
    refuse("title", fmt::format("'{}' is neither a number from 1 nor the main one", *title));
}

void requireNone(const std::vector<std::pair<const char*, bool>>& given, const std::string& where) {
  for (const auto& [setting, isGiven] : given)
    if (isGiven) refuse(setting, "it does nothing where " + where);
}

void requireEffect(const std::string& effect) {
  if (effect.empty()) return;
  const auto names = EffectManager::allFilterNames();
  if (!std::ranges::count(names, effect))
    refuse("effect", fmt::format("there is no effect '{}'{}", effect, nearestNames(effect, names)));
}

void requireNumber(const std::string& setting, double number, double low, double high) {
  if (!(number >= low && number <= high))
    refuse(setting, fmt::format("'{}' is not a number from {} to {}", number, low, high));
}

void requireRate(const std::string& setting, Rational rate) {
  const bool isRate = rate.num > 0 && rate.den > 0 && rate.num <= int64_t{rate.den} * kFastestRate;
  if (!isRate)
    refuse(setting, fmt::format("'{}/{}' is not above 0 and up to {} pictures per second", rate.num,
                                rate.den, kFastestRate));
}

void requireSide(const std::string& setting, int pixels) {
  requireNumber(setting, pixels, 1, kLongestSide);
}

void requireAspect(const std::string& setting, double aspect) {
  requireNumber(setting, aspect, kNarrowest, kWidest);
}

void requireBitRate(const std::string& setting, int bitsPerSecond) {
  requireNumber(setting, bitsPerSecond, 1, std::numeric_limits<int>::max());
}

void requireSampleRate(const std::string& setting, int rate) {
  requireNumber(setting, rate, kLowestSampleRate, kHighestSampleRate);
}

void requireLayout(const std::string& setting, int64_t mask) {
  if (mask <= 0) refuse(setting, fmt::format("'{}' is no mask of channels", mask));
}

void requireVolume(const std::string& setting, double volume) {
  requireNumber(setting, volume, 0, kLoudest);
}

void requireLoudness(const std::string& setting, double lufs) {
  requireNumber(setting, lufs, kQuietestSound, kLoudestSound);
}

void requireMoment(const std::string& setting, const Moment& moment) {
  if (moment.share) requireNumber(setting, *moment.share, 0, 1);
  if (moment.time < 0) refuse(setting, "the movie starts at 0");
  if (moment.time > kLatestTime) refuse(setting, "no movie is so long");
}

int64_t timeOf(const std::string& setting, const Moment& moment, std::optional<int64_t> length,
               const std::string& path) {
  const auto time = moment.within(length);
  if (!time)
    refuse(setting,
           fmt::format("how long '{}' is cannot be known: give a time in place of a share", path));
  return *time;
}

}  // namespace kestrel
