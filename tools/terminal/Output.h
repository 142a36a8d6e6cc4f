#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

/// Puts a sentence on standard error, behind the program's name. Whatever is in it, it stays one
/// line.
void say(const std::string& sentence);

/// Writes all of `text` to standard output. Throws `Failure` when that can't be done (a full disk);
/// a reader that has gone away ends the program without a message.
void writeStandardOutput(const std::string& text);

/// The same of a JSON document, indented. What of its texts is no UTF-8 becomes U+FFFD.
void writeDocument(const nlohmann::ordered_json& document);

/// Rows of as many cells each as lines, a column as wide as its longest cell; from the column
/// `rightFrom` on cells stand at its right.
std::string tableText(const std::vector<std::vector<std::string>>& rows, size_t rightFrom = -1);
