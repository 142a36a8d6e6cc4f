#pragma once

#include <string>

namespace kestrel {

/// How a value is written.
enum class OptionForm {
  kText,
  kNumber,
  kSwitch,
  kList,  ///< several texts
};

/// What is told of an option, as `kestrel convert --help` shows it and a form may.
struct OptionInfo {
  std::string name = {};   ///< without dashes: "video-codec"
  std::string value = {};  ///< how its value looks, "WxH|720p|50%"; "" of a switch
  std::string text = {};   ///< what it does, in a few words
  OptionForm form = OptionForm::kText;
  /// It does something only where subtitles are drawn, beside "subtitles" or "subtitle-track".
  bool stylesSubtitles = false;
  std::string group = {};  ///< the heading that it stands under, "Picture"
};

}  // namespace kestrel
