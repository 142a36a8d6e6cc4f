#include "support/GeometryText.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>

namespace kestrel {

namespace {

/// Reads a text from its start; after the first thing that is not as expected it has failed.
class Reader {
 public:
  explicit Reader(std::string_view text) : rest_(text) {}

  Reader& sign(char expected) {
    skipBlanks();
    if (rest_.starts_with(expected))
      rest_.remove_prefix(1);
    else
      failed_ = true;
    return *this;
  }

  Reader& number(double& value) {
    skipBlanks();
    if (rest_.starts_with('+') && !rest_.starts_with("+-")) rest_.remove_prefix(1);
    const auto [end, error] = std::from_chars(rest_.data(), rest_.data() + rest_.size(), value);
    failed_ = failed_ || error != std::errc{} || !std::isfinite(value);
    rest_.remove_prefix(static_cast<size_t>(end - rest_.data()));
    return *this;
  }

  Reader& pair(double& first, double& second) {
    return sign('{').number(first).sign(',').number(second).sign('}');
  }

  /// True when all was as expected and nothing is left.
  bool isDone() {
    skipBlanks();
    return !failed_ && rest_.empty();
  }

 private:
  void skipBlanks() {
    rest_.remove_prefix(std::min(rest_.find_first_not_of(" \t\r\n"), rest_.size()));
  }

  std::string_view rest_;
  bool failed_ = false;
};

}  // namespace

std::string textOfSize(const Size& size) {
  return fmt::format("{{{}, {}}}", size.width, size.height);
}

Size sizeOfText(std::string_view text) {
  Size size;
  return Reader(text).pair(size.width, size.height).isDone() ? size : Size{};
}

std::string textOfRect(const Rect& rect) {
  return fmt::format("{{{{{}, {}}}, {}}}", rect.origin.x, rect.origin.y, textOfSize(rect.size));
}

Rect rectOfText(std::string_view text) {
  Rect rect;
  Reader reader(text);
  reader.sign('{').pair(rect.origin.x, rect.origin.y).sign(',');
  reader.pair(rect.size.width, rect.size.height).sign('}');
  return reader.isDone() ? rect : Rect{};
}

}  // namespace kestrel
