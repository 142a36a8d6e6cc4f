#pragma once

#include <kestrel/convert/MediaInfo.h>

#include <string>
#include <string_view>

struct AVOutputFormat;

namespace kestrel {

// What containers hold of what is written on an input and its streams.

/// The code under which a container holds a language: "fra" in QuickTime for "fre", which is
/// another code for the same one. "" where it has none. Containers of which nothing is known hold
/// all.
std::string heldLanguage(const AVOutputFormat& container, const std::string& code);

/// The three-letter code that QuickTime's name of a language stands for: "swe" for "sve".
std::string languageOfQuickTime(const std::string& name);

/// Whether it holds a flag of a stream, such as "forced", and titles of streams.
bool holdsFlag(const AVOutputFormat& container, std::string_view flag);
bool holdsTitles(const AVOutputFormat& container);

/// Whether it holds a tag of the file that people know, such as "artist". Others are never missed.
bool holdsTag(const AVOutputFormat& container, std::string_view tag);

}  // namespace kestrel
