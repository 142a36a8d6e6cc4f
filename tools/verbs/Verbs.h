#pragma once

#include "tools/cli/CommandLine.h"

/// The program, and its verbs. Each function adds one with its options and says what it does.

CommandLine::About aboutProgram();

/// All that follow.
void addVerbs(CommandLine& line);

/// What is in a media file, as text or as JSON.
void addInfoVerb(CommandLine& line);

/// One movie or sound file into another.
void addConvertVerb(CommandLine& line);

/// A movie converted in parts.
void addJobVerb(CommandLine& line);

/// Single pictures of a movie: one, a contact sheet, or a sheet for web players.
void addThumbVerb(CommandLine& line);

/// Streams of several files on one time line.
void addComposeVerb(CommandLine& line);

/// Files one after the other.
void addJoinVerb(CommandLine& line);

/// A movie cut without encoding it.
void addCutVerb(CommandLine& line);

/// The waveform of a file's sound.
void addWaveVerb(CommandLine& line);

/// How like its original a copy of a movie looks.
void addCompareVerb(CommandLine& line);

/// What is the matter with movies.
void addCheckVerb(CommandLine& line);

/// A movie's scenes.
void addScenesVerb(CommandLine& line);

/// What is on a disc.
void addDvdVerb(CommandLine& line);

/// Plays a movie's sound, and shows its pictures on the terminal.
void addPlayVerb(CommandLine& line);

/// Lists the looks that `--effect` knows, and shows them.
void addEffectsVerb(CommandLine& line);

/// Lists the encoders that work on this machine.
void addEncodersVerb(CommandLine& line);

/// Lists the presets of conversions.
void addPresetsVerb(CommandLine& line);

/// A short test movie, so that there is something to try the program on.
void addDemoVerb(CommandLine& line);

/// What completion in shells asks the program for: values that depend on the machine or on a file.
/// `kestrel complete QUESTION -- WORD…`; no help tells of it.
void addCompleteVerb(CommandLine& line);
