#include "tools/verbs/PlanText.h"

#include <fmt/format.h>
#include <kestrel/convert/MediaInfo.h>
#include <kestrel/convert/Text.h>

#include <nlohmann/json.hpp>
#include <optional>
#include <utility>
#include <vector>

#include "tools/verbs/Facts.h"

using namespace kestrel;
using nlohmann::ordered_json;

namespace {

using Words = std::vector<std::string>;

const char* kindName(const PlannedStream& stream) {
  switch (stream.kind) {
    case StreamInfo::Kind::kVideo:
      return stream.isCover ? "cover" : "video";
    case StreamInfo::Kind::kAudio:
      return "audio";
    case StreamInfo::Kind::kSubtitle:
      return "subtitle";
    case StreamInfo::Kind::kAttachment:
      return "attachment";
    default:
      return "data";
  }
}

const char* actionName(const PlannedStream& stream) {
  switch (stream.action) {
    case StreamAction::kEncode:
      return stream.kind == StreamInfo::Kind::kSubtitle ? "convert" : "encode";
    case StreamAction::kCopy:
      return "copy";
    case StreamAction::kBurnIn:
      return "draw";
    default:
      return "leave out";
  }
}

std::string optionsText(const std::map<std::string, std::string>& options) {
  Words words;
  for (const auto& [name, value] : options) words.push_back(name + "=" + value);
  return fmt::format("{}", fmt::join(words, " "));
}

std::string encoderOf(const std::string& encoder, int codec) {
  return encoder.empty() ? lm_get_codec_name_by_id(codec) : encoder;
}

const char* nameOf(Deinterlacing deinterlacing) {
  switch (deinterlacing) {
    case Deinterlacing::kOff:
      return "off";
    case Deinterlacing::kAuto:
      return "marked";
    case Deinterlacing::kOn:
      return "all";
    default:
      return "combed";
  }
}

const char* nameOf(Denoising denoising) {
  switch (denoising) {
    case Denoising::kOff:
      return "off";
    case Denoising::kLight:
      return "light";
    case Denoising::kMedium:
      return "medium";
    default:
      return "strong";
  }
}

std::string textOf(const Area& area) {
  return fmt::format("{},{},{}x{}", area.x, area.y, area.width, area.height);
}

/// Which part of the pictures is shown; absent: all of them.
std::optional<Area> partOf(const ConversionPlan& plan) {
  return plan.look.crop ? plan.look.crop : plan.picture;
}

/// What becomes of pictures before they are encoded.
Words treatmentFacts(const ConversionPlan& plan) {
  Words facts;
  const PictureTreatment& treatment = plan.treatment;
  if (treatment.deinterlacing != Deinterlacing::kOff)
    facts.push_back(fmt::format("{} pictures deinterlaced", nameOf(treatment.deinterlacing)));
  if (treatment.separatesFields) facts.emplace_back("a picture of each field");
  if (plan.topFieldFirst)
    facts.push_back(
        fmt::format("interlaced, {} field first", *plan.topFieldFirst ? "upper" : "lower"));
  if (treatment.denoising != Denoising::kOff)
    facts.push_back(fmt::format("{} denoising", nameOf(treatment.denoising)));
  if (const auto part = partOf(plan)) facts.push_back("cropped to " + textOf(*part));
  const Orientation& upright = plan.orientation;
  if (upright.mirrored) facts.emplace_back("mirrored as its tags say");
  if (upright.counterclockwise != 0)
    facts.push_back(formatNumber(-upright.counterclockwise, 1) + "° turned as its tags say");
  if (plan.look.hflip) facts.emplace_back("mirrored");
  if (plan.look.vflip) facts.emplace_back("upside down");
  if (plan.look.rotate != 0) facts.push_back(formatNumber(plan.look.rotate, 1) + "° turned");
  return facts;
}

ordered_json treatmentDocument(const ConversionPlan& plan) {
  const PictureTreatment& treatment = plan.treatment;
  const auto part = partOf(plan);
  return {{"deinterlace", nameOf(treatment.deinterlacing)},
          {"separates_fields", treatment.separatesFields},
          {"top_field_first", orNull(plan.topFieldFirst)},
          {"denoise", nameOf(treatment.denoising)},
          {"crop", orNull(part ? textOf(*part) : "")},
          {"own_rotation", plan.orientation.counterclockwise},
          {"own_mirror", plan.orientation.mirrored},
          {"hflip", plan.look.hflip},
          {"vflip", plan.look.vflip},
          {"rotate", plan.look.rotate}};
}

Words pictureFacts(const ConversionPlan& plan) {
  const auto& format = plan.format;
  Words facts{encoderOf(plan.videoEncoder, format.video_codec),
              fmt::format("{}x{}", format.width, format.height)};
  for (const PictureRung& rung : plan.rungs)
    facts.push_back(fmt::format("{}x{}", rung.width, rung.height));
  const double rate = static_cast<double>(plan.rate().num) / plan.rate().den;
  facts.push_back(formatNumber(rate, 3) + (plan.keepsTimes ? " fps at their own times" : " fps"));
  if (!plan.pixelFormat.empty()) facts.push_back(plan.pixelFormat);
  for (std::string& fact : treatmentFacts(plan)) facts.push_back(std::move(fact));
  // A limit on the file's size sets the bit rate only in the run.
  if (format.video_bitrate > 0 && !plan.sizeLimit)
    facts.push_back(formatBitRate(format.video_bitrate));
  if (plan.passes > 1) facts.push_back(fmt::format("{} passes", plan.passes));
  if (!plan.videoOptions.empty()) facts.push_back(optionsText(plan.videoOptions));
  return facts;
}

Words soundFacts(const SoundEncoding& sound) {
  Words facts{encoderOf(sound.encoder, sound.codec), fmt::format("{} Hz", sound.sampleRate),
              fmt::format("{} channels", lm_get_channel_layout_nb_channels(sound.channelLayout))};
  if (sound.bits > 0)
    facts.push_back(fmt::format("{} bits{}", sound.bits, sound.isFloat ? ", floating point" : ""));
  if (sound.bitrate > 0) facts.push_back(formatBitRate(sound.bitrate));
  if (sound.loudness) facts.push_back(formatNumber(*sound.loudness, 1) + " LUFS");
  if (!sound.loudness && sound.volume != 1)
    facts.push_back("volume " + formatNumber(sound.volume, 3));
  if (!sound.options.empty()) facts.push_back(optionsText(sound.options));
  return facts;
}

bool isEncoded(const PlannedStream& stream, StreamInfo::Kind kind) {
  return stream.kind == kind && stream.action == StreamAction::kEncode;
}

Words factsOf(const PlannedStream& stream, const ConversionPlan& plan) {
  Words facts;
  if (isEncoded(stream, StreamInfo::Kind::kVideo)) facts = pictureFacts(plan);
  if (isEncoded(stream, StreamInfo::Kind::kAudio)) facts = soundFacts(stream.sound);
  if (isEncoded(stream, StreamInfo::Kind::kSubtitle))
    facts.push_back(lm_get_codec_name_by_id(stream.subtitleCodec));
  for (const char* tag : {"language", "title"})
    if (const auto found = stream.tags.find(tag); found != stream.tags.end())
      facts.push_back(printable(found->second));
  if (!stream.reason.empty()) facts.push_back(printable(stream.reason));
  for (const std::string& loss : stream.losses) facts.push_back(printable(loss));
  return facts;
}

std::string numbersOf(const PlannedStream& stream) {
  Words numbers;
  for (const uint32_t index : stream.sources) numbers.push_back(fmt::format("#{}", index));
  return fmt::format("{}", fmt::join(numbers, "+"));
}

void addPictures(ordered_json& json, const ConversionPlan& plan) {
  const auto& format = plan.format;
  json["encoder"] = encoderOf(plan.videoEncoder, format.video_codec);
  json["codec"] = lm_get_codec_name_by_id(format.video_codec);
  json["width"] = format.width;
  json["height"] = format.height;
  json["rungs"] = ordered_json::array();
  for (const PictureRung& rung : plan.rungs)
    json["rungs"].push_back(
        {{"width", rung.width}, {"height", rung.height}, {"bit_rate", rung.bitrate}});
  json["frame_rate"] = fmt::format("{}/{}", plan.rate().num, plan.rate().den);
  json["keeps_times"] = plan.keepsTimes;
  json["pix_fmt"] = plan.pixelFormat;
  json["bit_rate"] = format.video_bitrate;
  json["passes"] = plan.passes;
  json["treatment"] = treatmentDocument(plan);
  json["options"] = plan.videoOptions;
}

void addSound(ordered_json& json, const SoundEncoding& sound) {
  json["encoder"] = encoderOf(sound.encoder, sound.codec);
  json["codec"] = lm_get_codec_name_by_id(sound.codec);
  json["sample_rate"] = sound.sampleRate;
  json["channels"] = lm_get_channel_layout_nb_channels(sound.channelLayout);
  json["bits"] = sound.bits;
  json["floating_point"] = sound.isFloat;
  json["bit_rate"] = sound.bitrate;
  json["volume"] = sound.volume;
  json["loudness"] = orNull(sound.loudness);
  json["options"] = sound.options;
}

ordered_json streamDocument(const PlannedStream& stream, const ConversionPlan& plan) {
  ordered_json json{{"sources", stream.sources},
                    {"type", kindName(stream)},
                    {"action", actionName(stream)},
                    {"reason", orNull(stream.reason)},
                    {"losses", stream.losses}};
  if (isEncoded(stream, StreamInfo::Kind::kVideo)) addPictures(json, plan);
  if (isEncoded(stream, StreamInfo::Kind::kAudio)) addSound(json, stream.sound);
  if (isEncoded(stream, StreamInfo::Kind::kSubtitle))
    json["codec"] = lm_get_codec_name_by_id(stream.subtitleCodec);
  json["tags"] = stream.tags;
  return json;
}

}  // namespace

std::string planText(const ConversionSettings& settings, const ConversionPlan& plan) {
  std::string text = fmt::format("{} -> {} ({})\n", printable(settings.input),
                                 printable(settings.output), plan.formatName);
  if (plan.start > 0 || plan.end)
    text += fmt::format("  from {} to {}\n", timeText(plan.start),
                        plan.end ? timeText(*plan.end) : "the end");
  if (plan.segment)
    text += fmt::format("  HLS, in segments of {} s\n", formatNumber(seconds(*plan.segment), 3));
  if (plan.targetQuality)
    text += fmt::format("  quality {:g}, which sets crf anew\n", plan.targetQuality->score);
  if (plan.chapterSource == ChapterSource::kScenes) text += "  chapters from scenes\n";
  if (plan.sizeLimit) text += fmt::format("  at most {}\n", formatByteCount(*plan.sizeLimit));
  for (const PlannedStream& stream : plan.streams)
    text += fmt::format("  {:<5} {:<10} {:<9}  {}\n", numbersOf(stream), kindName(stream),
                        actionName(stream), fmt::join(factsOf(stream, plan), ", "));
  return text;
}

ordered_json planDocument(const ConversionSettings& settings, const ConversionPlan& plan) {
  ordered_json json{
      {"input", settings.input},
      {"output", settings.output},
      {"format", plan.formatName},
      {"start", seconds(plan.start)},
      {"end", secondsOrNull(plan.end)},
      {"size_limit", orNull(plan.sizeLimit)},
      {"target_quality", nullptr},
      {"chapters_from", plan.chapterSource == ChapterSource::kScenes ? "scenes" : "input"},
      {"segment", secondsOrNull(plan.segment)},
      {"metadata", plan.keepsMetadata}};
  if (plan.targetQuality) json["target_quality"] = plan.targetQuality->score;
  json["streams"] = ordered_json::array();
  for (const PlannedStream& stream : plan.streams)
    json["streams"].push_back(streamDocument(stream, plan));
  return json;
}
