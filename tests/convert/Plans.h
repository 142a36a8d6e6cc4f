#pragma once

#include <kestrel/LMMediaSource.h>
#include <kestrel/convert/Conversion.h>
#include <kestrel/convert/Failure.h>

#include <stdexcept>
#include <string>
#include <utility>

#include "convert/plan/ConversionPlanner.h"
#include "tests/support/Fixture.h"

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace kestrel::test {

inline ConversionPlan planOf(const std::string& input, const std::string& output,
                             ConversionSettings settings = {}) {
  settings.input = fixture(input).string();
  settings.output = output;
  const auto source = LMMediaSource::mediaWithPath(settings.input);
  source->open();
  return planConversion(settings, *source);
}

/// The kind and the sentence of what planning throws.
inline std::pair<Failure::Kind, std::string> refusalOf(const std::string& input,
                                                       const std::string& output,
                                                       const ConversionSettings& settings = {}) {
  try {
    planOf(input, output, settings);
  } catch (const Failure& failure) {
    return {failure.kind(), failure.what()};
  }
  throw std::runtime_error("it is planned");
}

inline std::string nameOf(int codec) { return avcodec_get_name(static_cast<AVCodecID>(codec)); }

}  // namespace kestrel::test
