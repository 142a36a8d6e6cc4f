#include "convert/plan/EncoderOptions.h"

#include <kestrel/convert/Text.h>

#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <string_view>
#include <vector>

#include "convert/probe/EncoderTable.h"
#include "convert/settings/Require.h"
#include "platform/codec/CodecOwners.h"
#include "support/LibraryLog.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/opt.h>
}

namespace kestrel {

namespace {

constexpr double kLargestInt = std::numeric_limits<int>::max();

/// Words that an encoder's library knows, where FFmpeg hands a text on without looking at it.
struct Words {
  std::string_view encoder;
  std::string_view option;
  std::vector<std::string> words;
  std::string_view separators = {};  ///< between several of them; "": it takes one
};

const std::vector<Words>& knownWords() {
  static const std::vector<Words> kWords = [] {
    const std::vector<std::string> x264Tunes{"film",       "animation",   "grain",
                                             "stillimage", "psnr",        "ssim",
                                             "fastdecode", "zerolatency", "touhou"};
    const std::vector<std::string> x264Profiles{"baseline", "main",    "high",
                                                "high10",   "high422", "high444"};
    return std::vector<Words>{
        {"libx264", "tune", x264Tunes, ",./-+"},
        {"libx264", "preset", encoderRow("libx264")->presets()},
        {"libx264", "profile", x264Profiles},
        {"libx264rgb", "tune", x264Tunes, ",./-+"},
        {"libx264rgb", "preset", encoderRow("libx264rgb")->presets()},
        {"libx265", "tune", {"psnr", "ssim", "grain", "fastdecode", "zerolatency", "animation"}},
        {"libx265", "preset", encoderRow("libx265")->presets()}};
  }();
  return kWords;
}

std::vector<std::string> split(std::string_view text, std::string_view separators) {
  std::vector<std::string> parts;
  while (true) {
    const size_t end = text.find_first_of(separators);
    parts.emplace_back(text.substr(0, end));
    if (end == std::string_view::npos) return parts;
    text.remove_prefix(end + 1);
  }
}

class Options {
 public:
  Options(const std::string& setting, const AVCodec& encoder)
      : setting_(setting), encoder_(encoder), context_(avcodec_alloc_context3(&encoder)) {}

  void require(const std::string& name, const std::string& value) const {
    if (!context_) return;
    const AVOption* const option =
        av_opt_find(context_.get(), name.c_str(), nullptr, 0, AV_OPT_SEARCH_CHILDREN);
    if (!option)
      refuse(setting_, fmt::format("the encoder {} has no option '{}'{}", encoder_.name, name,
                                   nearestNames(name, names())));
    requireWord(name, value);
    const LibraryLog quiet;
    if (av_opt_set(context_.get(), name.c_str(), value.c_str(), AV_OPT_SEARCH_CHILDREN) < 0)
      refuseValue(name, value, *option);
  }

 private:
  /// Calls `look` with each option of the encoder's own and of all encoders of its kind.
  template <typename Look>
  void forEach(Look look) const {
    const int kind =
        AV_OPT_FLAG_ENCODING_PARAM |
        (encoder_.type == AVMEDIA_TYPE_VIDEO ? AV_OPT_FLAG_VIDEO_PARAM : AV_OPT_FLAG_AUDIO_PARAM);
    for (void* object : {context_->priv_data, static_cast<void*>(context_.get())}) {
      // Encoders without options have no list of them.
      if (!object || (object == context_->priv_data && !encoder_.priv_class)) continue;
      const AVOption* option = nullptr;
      while ((option = av_opt_next(object, option)))
        if ((option->flags & kind) == kind) look(*option);
    }
  }

  std::vector<std::string> names() const {
    std::vector<std::string> names;
    forEach([&](const AVOption& option) {
      if (option.type != AV_OPT_TYPE_CONST) names.emplace_back(option.name);
    });
    return names;
  }

  /// The names that an option has for some of its values.
  std::vector<std::string> valuesOf(const AVOption& wanted) const {
    std::vector<std::string> values;
    if (!wanted.unit) return values;
    forEach([&](const AVOption& option) {
      if (option.type == AV_OPT_TYPE_CONST && option.unit &&
          std::string_view(option.unit) == wanted.unit)
        values.emplace_back(option.name);
    });
    return values;
  }

  void requireWord(const std::string& name, const std::string& value) const {
    for (const Words& known : knownWords()) {
      if (known.encoder != encoder_.name || known.option != name) continue;
      const auto words = known.separators.empty() ? std::vector<std::string>{value}
                                                  : split(value, known.separators);
      // Presets have numbers, too.
      const bool isNumber =
          name == "preset" && value.size() == 1 && value[0] >= '0' && value[0] <= '9';
      for (const std::string& word : words)
        if (!isNumber && std::ranges::count(known.words, word) == 0)
          refuse(setting_,
                 fmt::format("the encoder {} has no {} '{}'{}: it has {}", encoder_.name, name,
                             word, nearestNames(word, known.words), fmt::join(known.words, ", ")));
    }
  }

  [[noreturn]] void refuseValue(const std::string& name, const std::string& value,
                                const AVOption& option) const {
    const auto values = valuesOf(option);
    std::vector<std::string> taken;
    if (option.type == AV_OPT_TYPE_BOOL)
      taken = {"true or false"};
    else if (std::string range = rangeOf(option);
             !range.empty() && option.type != AV_OPT_TYPE_FLAGS)
      taken = {std::move(range)};
    taken.insert(taken.end(), values.begin(), values.end());
    refuse(setting_, fmt::format("'{}' is no {} of the encoder {}{}{}{}", value, name,
                                 encoder_.name, nearestNames(value, values),
                                 taken.empty() ? "" : ": it takes ", fmt::join(taken, ", ")));
  }

  /// "-1 to 69"; "" for what is no number.
  static std::string rangeOf(const AVOption& option) {
    switch (option.type) {
      case AV_OPT_TYPE_INT:
      case AV_OPT_TYPE_INT64:
      case AV_OPT_TYPE_UINT64:
      case AV_OPT_TYPE_FLOAT:
      case AV_OPT_TYPE_DOUBLE:
        break;
      default:
        return {};
    }
    const bool hasLeast = option.min > -kLargestInt;
    const bool hasMost = option.max < kLargestInt;
    if (hasLeast && hasMost) return fmt::format("{} to {}", option.min, option.max);
    return hasLeast ? fmt::format("numbers from {}", option.min) : std::string("numbers");
  }

  const std::string& setting_;
  const AVCodec& encoder_;
  const CodecContextPtr context_;
};

}  // namespace

void requireEncoderOptions(const std::string& setting, const AVCodec& encoder,
                           const std::map<std::string, std::string>& options) {
  if (options.empty()) return;
  const Options known(setting, encoder);
  for (const auto& [name, value] : options) known.require(name, value);
}

}  // namespace kestrel
