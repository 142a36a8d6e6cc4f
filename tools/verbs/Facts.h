#pragma once

#include <kestrel/LMFFFormat.h>
#include <kestrel/convert/Text.h>

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

// Facts of the library's as texts and documents show them.

/// A time of the engine, microseconds, in seconds.
inline double seconds(int64_t time) { return kestrel::lm_ff_time_to_double(time); }

/// The same as people read it: "0:09.640".
inline std::string timeText(int64_t time) { return kestrel::formatTime(seconds(time)); }

// What is not known is null in documents.

inline nlohmann::ordered_json orNull(const std::string& text) {
  return text.empty() ? nlohmann::ordered_json(nullptr) : nlohmann::ordered_json(text);
}

template <typename Number>
nlohmann::ordered_json orNull(const std::optional<Number>& number) {
  return number ? nlohmann::ordered_json(*number) : nlohmann::ordered_json(nullptr);
}

inline nlohmann::ordered_json positiveOrNull(int number) {
  return number > 0 ? nlohmann::ordered_json(number) : nlohmann::ordered_json(nullptr);
}

inline nlohmann::ordered_json secondsOrNull(const std::optional<int64_t>& time) {
  return time ? nlohmann::ordered_json(seconds(*time)) : nlohmann::ordered_json(nullptr);
}
