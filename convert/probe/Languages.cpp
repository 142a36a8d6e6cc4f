#include "convert/probe/Languages.h"

#include <kestrel/LibMedia.h>

#include "convert/probe/Labels.h"

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/dict.h>
}

namespace kestrel {

std::string languageOf(const AVStream& stream) {
  const AVDictionaryEntry* entry = av_dict_get(stream.metadata, "language", nullptr, 0);
  const std::string code = entry ? entry->value : "";
  return code == "und" ? "" : languageOfQuickTime(code);
}

bool isSameLanguage(const std::string& code, const std::string& other) {
  if (code == other) return true;
  // What has no name is shown as English; only English itself may be taken by that name.
  const auto nameOf = [](const std::string& language) {
    const std::string name = LibMedia::displayStringForLanguage(language);
    const bool isStandIn =
        name == LibMedia::displayStringForLanguage("") && language != "en" && language != "eng";
    return isStandIn ? std::string() : name;
  };
  return !nameOf(code).empty() && nameOf(code) == nameOf(other);
}

}  // namespace kestrel
