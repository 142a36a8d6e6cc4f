#pragma once

#include <kestrel/LMMediaSource.h>
#include <kestrel/Waveform.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "InputEnd.h"

/// The outline of an input's sound, and how far it was read.
struct DrawnWave {
  kestrel::Waveform waveform;
  InputEnd end;
  int64_t promised = 0;  ///< how long the sound was to be, microseconds; 0: unknown
};

/// Draws an open input; `path` is for messages. None when interrupted; throws Failure for what
/// cannot be drawn. Afterwards the source is at its end.
std::optional<DrawnWave> drawWave(const std::string& path,
                                  const std::shared_ptr<kestrel::LMMediaSource>& source,
                                  kestrel::WaveformSettings settings);
