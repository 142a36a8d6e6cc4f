#pragma once

#include <kestrel/Waveform.h>

#include <string>

/// The forms in which outlines of sound are stored for players and people. Each writes `path` and
/// throws `Failure`, which names `target`, when that can't be done.

/// Version 2 of the data that web players of waveforms read, as JSON: sample_rate,
/// samples_per_pixel, bits, length and channels, and in "data" the least and the greatest sample of
/// each point, channels beside each other. `bits` is 8 or 16.
void writeWaveJson(const kestrel::Waveform& waveform, int bits, const std::string& path,
                   const std::string& target);

/// The same in binary: a head of six 32-bit numbers, then the samples, lowest byte first.
void writeWaveData(const kestrel::Waveform& waveform, int bits, const std::string& path,
                   const std::string& target);

/// A PNG picture: channels one above the other, peaks pale behind the root mean square.
void writeWavePicture(const kestrel::Waveform& waveform, int width, int height,
                      const std::string& path, const std::string& target);

/// A sample as a number of `bits` bits with sign.
int quantized(float sample, int bits);
