#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>

#include "tests/dvd/Disc.h"
#include "tests/e2e/Kestrel.h"
#include "tests/support/Ffprobe.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {

/// An encoder setting for tests that look at something else.
inline const Arguments kFast{"--encoder-preset", "ultrafast"};

/// Converts titles of discs into files of a folder of its own.
class ConvertDvd : public testing::Test {
 protected:
  /// Whether a title converts without a word.
  testing::AssertionResult convertsTitle(const std::filesystem::path& disc,
                                         const std::string& title, const Arguments& options = {}) {
    return converts(disc, output(), joined(joined({"--title", title}, kFast), options));
  }

  /// The same of a title's sound alone.
  testing::AssertionResult convertsSound(const std::filesystem::path& disc,
                                         const std::string& title, const Arguments& options = {}) {
    return converts(disc, output(),
                    joined({"--title", title, "--video-codec", "none", "--force"}, options));
  }

  std::filesystem::path output(const std::string& name = "out.mkv") const { return folder_ / name; }

  TempDir folder_;
};

/// How long a file lasts, seconds.
inline double durationOf(const std::filesystem::path& file) {
  return std::stod(ffprobeJson(file)["format"]["duration"].get<std::string>());
}

/// The language that a stream is tagged with.
inline std::string languageOf(const nlohmann::json& stream) {
  return stream.value("tags", nlohmann::json::object()).value("language", "");
}

}  // namespace kestrel::test
