#include "tools/terminal/PlayLine.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include <kestrel/convert/Text.h>

using namespace kestrel;

namespace {

constexpr double kFloor = -48;  // decibels
constexpr int kWidestMeter = 20;
constexpr int kNarrowestMeter = 4;

std::string meter(float peak, int width) {
  const auto marks = static_cast<size_t>(meterMarks(peak, width));
  return "[" + std::string(marks, '#') + std::string(static_cast<size_t>(width) - marks, '-') + "]";
}

/// Tenths of seconds: fast enough to see that time passes.
std::string clockText(double seconds) {
  std::string text = formatTime(std::floor(seconds * 10) / 10);
  const size_t point = text.find('.');
  if (point == std::string::npos) return text + ".0";
  return text.substr(0, point + 2);
}

}  // namespace

int meterMarks(float peak, int width) {
  if (!(peak > 0)) return 0;
  const double level = 20 * std::log10(static_cast<double>(peak));
  return std::clamp(static_cast<int>(std::lround((level - kFloor) / -kFloor * width)), 0, width);
}

std::string playLine(const PlayState& state, int columns) {
  const int room = std::max(columns - 1, 0);
  std::string line = state.isPaused ? "paused   " : "playing  ";
  line += clockText(std::max(state.time, 0.0));
  if (state.duration) line += " / " + clockText(*state.duration);
  line += fmt::format("  {:.2f}x  ", state.rate);
  line += state.isMuted ? "muted    " : fmt::format("vol {:3.0f} %", state.volume * 100);
  const int left = (room - static_cast<int>(line.size()) - 3) / 2 - 2;
  if (left >= kNarrowestMeter) {
    const int width = std::min(left, kWidestMeter);
    line += "  " + meter(state.peaks[0], width) + " " + meter(state.peaks[1], width);
  }
  return line.substr(0, static_cast<size_t>(room));
}
