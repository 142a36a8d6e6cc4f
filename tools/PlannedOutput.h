#pragma once

#include <kestrel/LMFFMovieFileOutput.h>

#include <map>
#include <string>

#include "ConvertPlan.h"

struct AVDictionary;

/// Sets an output up as it is planned, up to the opening of its streams.
void setUpOutput(kestrel::LMFFMovieFileOutput& output, const ConvertPlan& plan,
                 const std::string& path);

/// Throws `Failure`, which names `target`, when the output has failed.
void requireOutput(const kestrel::LMFFMovieFileOutput& output, const std::string& target);

/// The tags of an input that are true of another file, too.
std::map<std::string, std::string> tagsOf(const AVDictionary* dictionary);

/// The language of a stream as a tag; none where it has none.
std::map<std::string, std::string> languageTag(const AVStream& stream);
