#pragma once

#include <kestrel/convert/MediaInfo.h>

#include <nlohmann/json_fwd.hpp>
#include <string>

/// What is in an input as people read it: the container, then each stream on a few short lines.
/// What the file does not tell is left out.
std::string infoText(const std::string& path, const kestrel::MediaInfo& info);

/// All that `kestrel info` tells of an opened input, as a JSON object. It names
/// `path`, `format`, `format_long_name`, `size` (bytes), `duration`, `start_time`, `bit_rate`,
/// `tags`, `chapters` and `streams`.
///
/// Times are seconds, bit rates bits per second, fractions texts such as "30000/1001". A key that
/// makes no sense for a stream is absent, a value that the file does not tell is null. `rotation`
/// is in degrees counter-clockwise.
nlohmann::ordered_json infoDocument(const std::string& path, const kestrel::MediaInfo& info);
