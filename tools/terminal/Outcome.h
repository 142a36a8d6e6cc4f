#pragma once

#include <kestrel/convert/Failure.h>
#include <kestrel/convert/Report.h>

#include <string>

#include "tools/terminal/ExitStatus.h"

/// How the library's outcomes become exit statuses and sentences of the program.

using kestrel::Failure;

/// A failure by wrong usage; `main` adds where help is found.
inline Failure wrongUsage(const std::string& sentence) { return Failure::settings(sentence); }

/// A failure of any other kind.
inline Failure failed(const std::string& sentence) { return Failure::input({}, sentence); }

ExitStatus statusOf(const Failure& failure);

/// The option that stands for a setting of the library's: "--audio-tracks" for "audioTracks".
std::string optionOf(const std::string& setting);

/// The failure's sentence with settings by the names of their options.
std::string sentenceOf(const Failure& failure);

/// "sound track 0: -23.1 LUFS, turned up by 7.1 dB, now -16.0 LUFS".
std::string sentenceOf(const kestrel::LoudnessChange& change);

/// Says on standard error what was wrong with the input and what of it is not in the result, and
/// how loud its sound has become, a line each; answers the exit status.
int finish(const kestrel::Report& report);
