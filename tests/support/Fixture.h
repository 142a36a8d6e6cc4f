#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace kestrel::test {

/// The path of a media file that `tests/fixtures/fixtures.txt` lists (made on first use by the
/// `ffmpeg` program, then kept in the build folder) or of a file that lies in `tests/fixtures`.
///
/// Any number of test processes may ask for the same one at once. The file is for reading only: a
/// test that changes it copies it first. Throws std::runtime_error for an unknown name and when
/// ffmpeg fails.
std::filesystem::path fixture(const std::string& name);

/// The folder that keeps what is made on first use: the one that the environment names as
/// KESTREL_FIXTURE_DIR or, by default, the build's.
std::filesystem::path fixtureDir();

/// The folder of a test disc that `tests/fixtures/dvd/make_disc.py` makes: `disc` in it is the
/// disc, `disc.iso` its image. Made and kept as fixtures are, and for reading only, too.
std::filesystem::path discFixture(const std::string& name);

/// The names that `tests/fixtures/fixtures.txt` lists.
std::vector<std::string> fixtureNames();

/// The path of a real clip, whether it is there or not: in the folder that the environment names
/// as KESTREL_MEDIA_DIR, by default `../shared/media` beside the project.
std::filesystem::path mediaFile(const std::string& name);

}  // namespace kestrel::test

/// Skips the test, visibly, where the real clip `name` is absent.
#define KESTREL_NEED_MEDIA(name)                                        \
  if (!std::filesystem::exists(::kestrel::test::mediaFile(name))) {     \
    GTEST_SKIP() << "no " << ::kestrel::test::mediaFile(name).string(); \
  }                                                                     \
  static_assert(true, "a semicolon follows")
