#pragma once

#include <functional>
#include <istream>
#include <map>
#include <string>
#include <vector>

namespace kestrel::test {

/// The list of fixtures: each name with the ffmpeg arguments that make it.
///
/// In its text a line `name: arguments` begins a fixture and a line that starts with a blank goes
/// on with its arguments. Blanks separate arguments, double quotes keep them; `#` at the start of a
/// line makes it a comment.
using FixtureTable = std::map<std::string, std::vector<std::string>>;

/// Throws std::runtime_error for a line that is none of the above and for a name listed twice.
FixtureTable readFixtureTable(std::istream& text);

/// Replaces each `{name}` in `argument` by what `path` answers for that name.
std::string withFixturePaths(const std::string& argument,
                             const std::function<std::string(const std::string& name)>& path);

}  // namespace kestrel::test
