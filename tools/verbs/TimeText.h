#pragma once

#include <kestrel/LMFFFormat.h>
#include <kestrel/convert/Text.h>

#include <cstdint>
#include <string>

/// A time of the engine, microseconds, as people read it: "0:09.640".
inline std::string timeText(int64_t time) {
  return kestrel::formatTime(kestrel::lm_ff_time_to_double(time));
}
