#pragma once

#include <kestrel/convert/ConversionOptions.h>

#include <string>
#include <vector>

#include "tools/cli/CommandLine.h"

/// Adds the options of the look to a verb.
void addLookOptions(Verb verb);

/// Adds of these the ones that choose which subtitles are drawn.
void addSubtitleOptions(Verb verb);

/// Refuses options that say how subtitles look where none are drawn.
void requireSubtitles(const Verb& verb);

/// What was typed of the options `known`.
kestrel::ConversionOptions givenOptions(const Verb& verb, const std::vector<std::string>& known);
