#pragma once

#include <kestrel/convert/ConversionOptions.h>

#include <string>
#include <vector>

#include "tools/cli/CommandLine.h"

/// What shells offer for the value of one of the library's options, by its name.
Choices choicesOf(const std::string& name);

/// Adds those of the library's options that stand under one of these headings, in their order.
void addOptions(Verb verb, const std::vector<kestrel::OptionInfo>& known,
                const std::vector<std::string>& headings);

/// Adds the options of the look.
void addLookOptions(Verb verb);

/// Adds of these the ones that choose which subtitles are drawn.
void addSubtitleOptions(Verb verb);

/// Refuses options that say how subtitles look where none are drawn.
void requireSubtitles(const Verb& verb);

/// What was typed of the options `known`.
kestrel::ConversionOptions givenOptions(const Verb& verb,
                                        const std::vector<kestrel::OptionInfo>& known);
