#pragma once

#include <kestrel/Waveform.h>
#include <kestrel/convert/WaveformFile.h>

namespace kestrel {

/// Throws a `Failure` unless the settings are in range.
void require(const WaveformSettings& settings);
void require(const WaveformFileSettings& settings);

}  // namespace kestrel
