#pragma once

#include <string>

/// Puts a sentence on standard error, behind the program's name. Whatever is in it, it stays one
/// line.
void say(const std::string& sentence);
