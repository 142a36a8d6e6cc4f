#pragma once

#include <kestrel/Error.h>

#include <map>
#include <string>

#include "support/FFmpegError.h"
#include "support/FFmpegOwners.h"

namespace kestrel {

/// Adds the entries to a dictionary of the libraries', replacing those of the same name.
inline void addEntries(const std::map<std::string, std::string>& entries, AVDictionary** to) {
  for (const auto& [name, value] : entries) av_dict_set(to, name.c_str(), value.c_str(), 0);
}

/// The error for an option that nobody has taken out of `left`; none when it is empty.
inline Error unknownOption(const AVDictionary* left) {
  const AVDictionaryEntry* entry = av_dict_get(left, "", nullptr, AV_DICT_IGNORE_SUFFIX);
  if (!entry) return {};
  return engineError(AVERROR_OPTION_NOT_FOUND, "unknown option '" + std::string(entry->key) + "'");
}

}  // namespace kestrel
