#pragma once

#include <string>
#include <string_view>
#include <vector>

/// Arguments behind "--" are none of the parser's options or verbs, whatever they look like: each
/// gets a mark in front, by which it is known again.

/// The arguments behind the program's name, last one first, as the parser takes them.
std::vector<std::string> marked(int argc, char** argv);

bool isPlain(std::string_view argument);
std::string withoutMark(const std::string& argument);
