#include "tools/terminal/Outcome.h"

#include <fmt/format.h>

#include <cctype>
#include <cmath>
#include <map>

#include "tools/terminal/Output.h"

std::string optionOf(const std::string& setting) {
  static const std::map<std::string, std::string> kOthers{{"width", "--size"},
                                                          {"height", "--size"},
                                                          {"lines", "--size"},
                                                          {"scale", "--size"},
                                                          {"onlyShrinks", "--no-upscale"},
                                                          {"chapterSource", "--chapters-from"},
                                                          {"channelLayout", "--channels"},
                                                          {"mixesAudio", "--mix"},
                                                          {"subtitleTracks", "--subtitles-keep"},
                                                          {"isCompatible", "--compatible"},
                                                          {"position", "the position"},
                                                          {"archive", "--save"},
                                                          {"videoOptions", "--video-option"},
                                                          {"audioOptions", "--audio-option"},
                                                          {"extension", "--ext"},
                                                          {"folder", "--into"},
                                                          {"protocols", "--allow-protocol"}};
  if (const auto other = kOthers.find(setting); other != kOthers.end()) return other->second;
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
  if (failure.subject() == "protocols" && !sentence.starts_with(prefix))
    return sentence + "; --allow-protocol allows one";
  return sentence.starts_with(prefix)
             ? optionOf(failure.subject()) + sentence.substr(failure.subject().size())
             : sentence;
}

Failure withTypedTime(const Failure& failure, const std::string& typed) {
  if (failure.subject() != "time") return failure;
  // "time: '0:11' lies behind the end of …".
  const std::string sentence = failure.what();
  if (!sentence.starts_with("time: '")) return failure;
  return wrongUsage(fmt::format("--time: '{}{}", typed, sentence.substr(sentence.find("' "))));
}

std::string sentenceOf(const kestrel::LoudnessChange& change) {
  if (!change.before)
    return fmt::format("sound track {} is silent and stays as it is", change.stream);
  const std::string after =
      change.after ? fmt::format("{:.1f} LUFS", *change.after) : std::string("silence");
  return fmt::format("sound track {}: {:.1f} LUFS, turned {} by {:.1f} dB, now {}{}", change.stream,
                     *change.before, change.gain < 0 ? "down" : "up", std::abs(change.gain), after,
                     change.isLimited ? "; its peaks are held at -1 dB" : "");
}

std::string sentenceOf(const kestrel::QualityReached& reached) {
  const std::string remark = reached.remark.empty() ? "" : "; " + reached.remark;
  if (reached.isCopied) return "the pictures are copied" + remark;
  return fmt::format("quality {:.1f} of {:g}, measured in {} pictures, at crf {:.4g}{}",
                     reached.percentile5, reached.target, reached.measured, reached.crf, remark);
}

int finish(const kestrel::Report& report) {
  if (report.outcome == kestrel::Report::Outcome::kInterrupted) return kInterrupted;
  for (const std::string& finding : report.findings) say(finding);
  for (const std::string& loss : report.leftOut) say(loss);
  for (const kestrel::LoudnessChange& change : report.loudness) say(sentenceOf(change));
  if (report.quality) say(sentenceOf(*report.quality));
  return report.isWhole() ? kDone : kDoneInPart;
}
