#include "convert/plan/EncoderParameters.h"

namespace kestrel {

namespace {

/// x265 writes to standard error by itself, past the libraries' log.
constexpr const char* kQuietX265 = "log-level=none";

/// A value in a list, whose parts colons separate.
std::string escaped(std::string_view value) {
  std::string text;
  for (const char letter : value) {
    if (std::string_view("\\':=").find(letter) != std::string_view::npos) text += '\\';
    text += letter;
  }
  return text;
}

/// An encoder's list, as it is before anything is added.
std::string& listOf(std::map<std::string, std::string>& options, std::string_view encoder) {
  std::string& list = options[parameterOption(encoder)];
  if (list.empty() && encoder == "libx265") list = kQuietX265;
  return list;
}

}  // namespace

std::string parameterOption(std::string_view encoder) {
  if (encoder == "libx264" || encoder == "libx264rgb") return "x264-params";
  if (encoder == "libx265") return "x265-params";
  if (encoder == "libsvtav1") return "svtav1-params";
  return "";
}

void addParameter(std::map<std::string, std::string>& options, std::string_view encoder,
                  std::string_view name, std::string_view value) {
  std::string& list = listOf(options, encoder);
  if (!list.empty()) list += ':';
  list += name;
  list += '=';
  list += escaped(value);
}

void addOptions(std::map<std::string, std::string>& options, std::string_view encoder,
                const std::map<std::string, std::string>& own) {
  const std::string parameters = parameterOption(encoder);
  for (const auto& [key, value] : own) {
    std::string* const list = key == parameters ? &listOf(options, encoder) : nullptr;
    if (list && !list->empty())
      *list += ':' + value;
    else
      options[key] = value;
  }
}

}  // namespace kestrel
