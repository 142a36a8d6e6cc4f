#pragma once

#include <kestrel/convert/ConversionPlan.h>

#include <nlohmann/json_fwd.hpp>
#include <string>

/// What a conversion will do, for people: a line for each stream.
std::string planText(const kestrel::ConversionSettings& settings,
                     const kestrel::ConversionPlan& plan);

/// The same as a JSON object.
nlohmann::ordered_json planDocument(const kestrel::ConversionSettings& settings,
                                    const kestrel::ConversionPlan& plan);
