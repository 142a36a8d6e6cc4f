#pragma once

#include <kestrel/Export.h>
#include <kestrel/convert/MediaInfo.h>

#include <optional>
#include <string>
#include <vector>

namespace kestrel {

/// The numbers in which an encoder takes the quality of its pictures.
struct QualityScale {
  std::string option = {};  ///< the encoder's option, such as "crf"
  double best = 0;
  double worst = 0;
  double usual = 0;  ///< what a conversion uses unless it is told otherwise
};

/// An encoder of this machine's libraries.
struct EncoderInfo {
  std::string name = {};      ///< such as "libx264"
  std::string longName = {};  ///< for people
  std::string codec = {};     ///< the short name of what it writes
  StreamInfo::Kind kind = StreamInfo::Kind::kVideo;
  bool isHardware = false;   ///< needs a device
  std::string trouble = {};  ///< why it does not work here; "": it does

  std::vector<std::string> pixelFormats = {};  ///< of pictures; empty: any
  std::vector<int> depths = {};                ///< bits of a component, rising
  std::optional<QualityScale> quality = {};    ///< none: it has a bit rate alone, or loses nothing
  bool takesBitrate = false;
  std::vector<std::string> presets = {};  ///< slowest last or by number; empty: none
  std::string usualPreset = {};

  std::vector<int> sampleRates = {};  ///< of sound, Hz; empty: any
  std::vector<std::string> sampleFormats = {};

  bool isUsable() const { return trouble.empty(); }
};

/// The encoders of pictures and sound for a codec ("h264"), the one of a name ("libx264"), or all
/// of them for "". Each is tried by encoding one picture or a moment of silence, so this may take
/// seconds where there are many. Of each codec, the one that a conversion chooses comes first.
/// Throws a `Failure` of the settings for a name that is neither.
KESTREL_API std::vector<EncoderInfo> readEncoders(const std::string& codec = {});

}  // namespace kestrel
