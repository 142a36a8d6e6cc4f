#include <kestrel/convert/Failure.h>

#include <utility>

namespace kestrel {

Failure::Failure(Kind kind, const std::string& sentence, std::string subject)
    : std::runtime_error(sentence), kind_(kind), subject_(std::move(subject)) {}

Failure::~Failure() = default;

Failure Failure::settings(const std::string& sentence, std::string subject) {
  return {Kind::kSettings, sentence, std::move(subject)};
}

Failure Failure::input(const std::string& path, const std::string& sentence) {
  return {Kind::kInput, sentence, path};
}

Failure Failure::output(const std::string& path, const std::string& sentence) {
  return {Kind::kOutput, sentence, path};
}

Failure Failure::interrupted() { return {Kind::kInterrupted, "interrupted"}; }

}  // namespace kestrel
