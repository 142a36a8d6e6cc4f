#pragma once

#include <kestrel/convert/Failure.h>
#include <kestrel/convert/Report.h>

#include <string>

/// How the library's outcomes become exit statuses and sentences of the program.

using kestrel::Failure;

/// What the program answers to the shell.
enum ExitStatus : int {
  kDone = 0,
  kFailed = 1,
  kWrongUsage = 2,
  kDoneInPart = 3,     ///< a result is there, but the input ended early or was damaged
  kTooLow = 4,         ///< a comparison's score is below what was asked for
  kInterrupted = 130,  ///< as a shell reports a program that SIGINT ended
};

/// A failure by wrong usage; `main` adds where help is found.
inline Failure wrongUsage(const std::string& sentence) { return Failure::settings(sentence); }

/// A failure of any other kind.
inline Failure failed(const std::string& sentence) { return Failure::input({}, sentence); }

ExitStatus statusOf(const Failure& failure);

/// The option that stands for a setting of the library's: "--audio-tracks" for "audioTracks".
std::string optionOf(const std::string& setting);

/// The failure's sentence with settings by the names of their options.
std::string sentenceOf(const Failure& failure);

/// A failure of the library's about a time, with the time as it was typed; any other as it is.
Failure withTypedTime(const Failure& failure, const std::string& typed);

/// "sound track 0: -23.1 LUFS, turned up by 7.1 dB, now -16.0 LUFS".
std::string sentenceOf(const kestrel::LoudnessChange& change);

/// "quality 79.6 of 80, measured in 150 pictures, at crf 19.2".
std::string sentenceOf(const kestrel::QualityReached& reached);

/// Says on standard error what was wrong with the input and what of it is not in the result, and
/// how loud its sound and how good its pictures have become, a line each; answers the exit status.
int finish(const kestrel::Report& report);
