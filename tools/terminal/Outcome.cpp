#include "tools/terminal/Outcome.h"

#include <cctype>

#include "tools/terminal/Say.h"

std::string optionOf(const std::string& setting) {
  if (setting == "width" || setting == "height" || setting == "lines" || setting == "scale")
    return "--size";
  if (setting == "onlyShrinks") return "--no-upscale";
  if (setting == "channelLayout") return "--channels";
  if (setting == "position") return "the position";
  if (setting == "archive") return "--save";
  if (setting == "extension") return "--ext";
  if (setting == "folder") return "--into";
  std::string option = "--";
  for (const char letter : setting) {
    const auto byte = static_cast<unsigned char>(letter);
    if (std::isupper(byte)) option += '-';
    option += static_cast<char>(std::tolower(byte));
  }
  return option;
}

ExitStatus statusOf(const Failure& failure) {
  switch (failure.kind()) {
    case Failure::Kind::kSettings:
      return kWrongUsage;
    case Failure::Kind::kInterrupted:
      return kInterrupted;
    default:
      return kFailed;
  }
}

std::string sentenceOf(const Failure& failure) {
  const std::string sentence = failure.what();
  if (failure.kind() == Failure::Kind::kExists) return sentence + "; --force replaces it";
  if (failure.kind() != Failure::Kind::kSettings || failure.subject().empty()) return sentence;
  const std::string prefix = failure.subject() + ":";
  return sentence.starts_with(prefix)
             ? optionOf(failure.subject()) + sentence.substr(failure.subject().size())
             : sentence;
}

int finish(const kestrel::Report& report) {
  if (report.outcome == kestrel::Report::Outcome::kInterrupted) return kInterrupted;
  for (const std::string& finding : report.findings) say(finding);
  for (const std::string& loss : report.leftOut) say(loss);
  return report.isWhole() ? kDone : kDoneInPart;
}
