#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

/// An `infoDocument` as people read it: the container, then each stream on a few short lines. What
/// the file does not tell is left out.
std::string infoText(const nlohmann::ordered_json& document);
