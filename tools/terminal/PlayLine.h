#pragma once

#include <array>
#include <optional>
#include <string>

/// What the player shows of itself.
struct PlayState {
  double time = 0;                      ///< seconds
  std::optional<double> duration = {};  ///< seconds, where known
  double rate = 1;
  double volume = 1;
  bool isPaused = false;
  bool isMuted = false;
  std::array<float, 2> peaks{};  ///< the loudest sample of either channel; 1 is full scale
};

/// How much of a meter of `width` marks a peak fills: in decibels, from -48 to full scale.
int meterMarks(float peak, int width);

/// One line of text for a terminal of `columns` columns, which it never fills quite; what has no
/// room is left out, the meter first.
std::string playLine(const PlayState& state, int columns);
