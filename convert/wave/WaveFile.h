#pragma once

#include <kestrel/Waveform.h>
#include <kestrel/convert/OutputFile.h>

#include <string>

namespace kestrel {

/// The forms in which outlines of sound are stored for players and people. Each throws
/// `Failure` when it can't be written.

/// Version 2 of the data that web players of waveforms read, as JSON: sample_rate,
/// samples_per_pixel, bits, length and channels, and in "data" the least and the greatest sample of
/// each point, channels beside each other. `bits` is 8 or 16.
void writeWaveJson(const Waveform& waveform, int bits, OutputFile& target);

/// The same in binary: a head of six 32-bit numbers, then the samples, lowest byte first.
void writeWaveData(const Waveform& waveform, int bits, OutputFile& target);

/// A PNG picture: channels one above the other, peaks pale behind the root mean square.
void writeWavePicture(const Waveform& waveform, int width, int height, OutputFile& target);

/// A sample as a number of `bits` bits with sign.
int quantized(float sample, int bits);

}  // namespace kestrel
