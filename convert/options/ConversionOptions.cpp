#include <kestrel/convert/ConversionOptions.h>

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <optional>
#include <span>
#include <utility>

#include <kestrel/convert/Failure.h>
#include <kestrel/convert/Text.h>
#include <kestrel/convert/Values.h>
#include "convert/options/OptionValues.h"
#include "convert/settings/LookNumbers.h"

namespace kestrel {

namespace {

int parseBits(std::string_view option, const std::string& text) {
  return parseWholeNumber(option, text, 8, 16);
}

int parseAngle(std::string_view option, const std::string& text) {
  constexpr int kMostAngles = 9;  // of any disc
  return parseWholeNumber(option, text, 1, kMostAngles);
}

int parsePasses(std::string_view option, const std::string& text) {
  return parseWholeNumber(option, text, 1, 2);
}

std::optional<Rational> parseRateOrSource(std::string_view option, const std::string& text) {
  return text == "source" ? std::nullopt : std::optional(parseRate(option, text));
}

std::string parseText(std::string_view /*option*/, const std::string& text) { return text; }

TrackChoice parseTracks(std::string_view /*option*/, const std::string& text) {
  return parseTrackChoice(text);
}

double parseAnyNumber(std::string_view option, const std::string& text) {
  return parseNumber(option, text);
}

float parseOutline(std::string_view option, const std::string& text) {
  return static_cast<float>(parseNumber(option, text, 0, 100));
}

int parseSampleRate(std::string_view option, const std::string& text) {
  return parseWholeNumber(option, text, 1000, 768000);
}

// Setters: each takes an option's name, for messages, and its value.

template <typename Settings>
using Setter = void (*)(Settings& settings, std::string_view option, const std::string& text);

template <auto member, auto parse>
void set(auto& settings, std::string_view option, const std::string& text) {
  settings.*member = parse(option, text);
}

/// `value`: what the switch sets where it is on.
template <auto member, bool value = true>
void turn(auto& settings, std::string_view option, const std::string& text) {
  settings.*member = parseSwitch(option, text) == value;
}

template <auto member>
void add(ConversionSettings& settings, std::string_view option, const std::string& text) {
  const auto [key, value] = parseKeyValue(option, text);
  (settings.*member).insert_or_assign(key, value);
}

/// What a text says becomes of a stream: "copy", "none", or a codec's name.
template <auto action, auto codec>
void setCodec(ConversionSettings& settings, std::string_view /*option*/, const std::string& text) {
  const bool isCopy = text == "copy";
  const bool isCodec = !isCopy && text != "none";
  settings.*codec = isCodec ? text : std::string();
  if (!isCodec)
    settings.*action = isCopy ? StreamAction::kCopy : StreamAction::kNone;
  else if (settings.*action == StreamAction::kCopy)
    settings.*action = std::nullopt;
}

void setSoundCodec(ConversionSettings& settings, std::string_view option, const std::string& text) {
  setCodec<&ConversionSettings::audio, &ConversionSettings::audioCodec>(settings, option, text);
  if (text == "auto") settings.audioCodec.clear();
}

void addProtocols(ConversionSettings& settings, std::string_view option, const std::string& text) {
  for (std::string& name : parseProtocols(option, text))
    settings.protocols.push_back(std::move(name));
}

void setSize(ConversionSettings& settings, std::string_view option, const std::string& text) {
  const PictureBox size = parseSize(option, text);
  settings.width = size.width;
  settings.height = size.height;
  settings.lines = size.lines;
  settings.scale = size.scale;
}

void setTracks(ConversionSettings& settings, std::string_view /*option*/, const std::string& text) {
  if (text == "none")
    settings.audio = StreamAction::kNone;
  else
    settings.audioTracks = parseTrackChoice(text);
}

void setMix(ConversionSettings& settings, std::string_view /*option*/, const std::string& text) {
  settings.mixesAudio = true;
  settings.audioTracks = parseTrackChoice(text);
}

void setSubtitles(ConversionSettings& settings, std::string_view /*option*/,
                  const std::string& text) {
  settings.keepsSubtitles = text != "none";
  if (settings.keepsSubtitles) settings.subtitleTracks = parseTrackChoice(text);
}

void setDeinterlacing(ConversionSettings& settings, std::string_view option,
                      const std::string& text) {
  if (text != "auto" && text != "on" && text != "off" && text != "bob")
    refuseValue(option, text, "one of auto, on, off and bob");
  settings.deinterlacing.reset();
  if (text == "on") settings.deinterlacing = Deinterlacing::kOn;
  if (text == "off") settings.deinterlacing = Deinterlacing::kOff;
  settings.separatesFields = text == "bob";
}

/// What an option shapes: it does nothing where that is not encoded.
enum class Shapes { kPictures, kSound, kNothing };

/// One option. Of those with the same word in `saysTheSame` one alone can be given; what is
/// `ofEncoder` has a meaning for one codec's encoder only.
template <typename Settings>
struct Row {
  std::string_view name;
  Setter<Settings> set;
  OptionForm form = OptionForm::kText;
  Shapes shapes = Shapes::kNothing;
  std::string_view saysTheSame = {};
  bool ofEncoder = false;
};

using C = ConversionSettings;
using L = LookSettings;
constexpr auto kNumber = OptionForm::kNumber;
constexpr auto kSwitch = OptionForm::kSwitch;
constexpr auto kList = OptionForm::kList;
constexpr auto kText = OptionForm::kText;
constexpr auto kPictures = Shapes::kPictures;
constexpr auto kSound = Shapes::kSound;
constexpr auto kNothing = Shapes::kNothing;

constexpr Row<ConversionSettings> kRows[] = {
    {"format", set<&C::format, parseText>},
    {"fragment", set<&C::fragment, parseSeconds>, kNumber},
    {"video-codec", setCodec<&C::video, &C::videoCodec>},
    {"size", setSize, kText, kPictures, "size"},
    {"ladder", set<&C::ladder, parseLadder>, kText, kPictures, "size"},
    {"no-upscale", turn<&C::onlyShrinks>, kSwitch, kPictures},
    {"fps", set<&C::fps, parseRateOrSource>, kText, kPictures, "rate"},
    {"max-fps", set<&C::maxFps, parseRate>, kText, kPictures, "rate"},
    {"aspect", set<&C::aspect, parseAspect>, kText, kPictures},
    {"quality", set<&C::quality, parseAnyNumber>, kNumber, kPictures, "quality"},
    {"crf", set<&C::crf, parseAnyNumber>, kNumber, kPictures, "quality", true},
    {"video-bitrate", set<&C::videoBitrate, parseBitRate>, kText, kPictures, "quality"},
    {"size-limit", set<&C::sizeLimit, parseBytes>, kText, kPictures, "quality"},
    {"passes", set<&C::passes, parsePasses>, kNumber, kPictures},
    {"encoder-preset", set<&C::encoderPreset, parseText>, kText, kPictures, {}, true},
    {"keyframes", set<&C::keyframes, parseSeconds>, kNumber, kPictures},
    {"compatible", turn<&C::isCompatible>, kSwitch, kPictures},
    {"depth", set<&C::depth, parseBits>, kNumber, kPictures},
    {"chroma", set<&C::chroma, parseChroma>, kText, kPictures},
    {"deinterlace", setDeinterlacing, kText, kPictures},
    {"denoise", set<&C::denoising, parseDenoising>, kText, kPictures},
    {"video-option", add<&C::videoOptions>, kList, kPictures, {}, true},
    {"audio-codec", setSoundCodec},
    {"audio-copy", set<&C::audioCopy, parseNames>, kText, kSound},
    {"audio-tracks", setTracks, kText, kNothing, "tracks"},
    {"mix", setMix, kText, kSound, "tracks"},
    {"audio-bitrate", set<&C::audioBitrate, parseBitRate>, kText, kSound},
    {"sample-rate", set<&C::sampleRate, parseSampleRate>, kNumber, kSound},
    {"channels", set<&C::channelLayout, parseChannels>, kText, kSound},
    {"volume", set<&C::volume, parseAnyNumber>, kNumber, kSound, "level"},
    {"loudness", set<&C::loudness, parseAnyNumber>, kNumber, kSound, "level"},
    {"audio-option", add<&C::audioOptions>, kList, kSound, {}, true},
    {"subtitles-keep", setSubtitles},
    {"no-attachments", turn<&C::keepsAttachments, false>, kSwitch},
    {"start", set<&C::start, parseMoment>, kText, kNothing, "start"},
    {"end", set<&C::end, parseMoment>, kText, kNothing, "end"},
    {"duration", set<&C::duration, parseMoment>, kText, kNothing, "end"},
    {"chapters", set<&C::chapters, parseChapters>, kText, kNothing, "end"},
    {"title", set<&C::title, parseTitle>},
    {"allow-protocol", addProtocols, kList},
    {"angle", set<&C::angle, parseAngle>, kNumber},
    {"no-metadata", turn<&C::keepsMetadata, false>, kSwitch},
};

constexpr auto kOtherLookRows = std::to_array<Row<LookSettings>>({
    {"crop", set<&L::crop, parseArea>, kText, kPictures, "crop"},
    {"auto-crop", turn<&L::autoCrop>, kSwitch, kPictures, "crop"},
    {"zoom", set<&L::zoom, parseZoom>, kText, kPictures},
    {"hdr", set<&L::hdr, parseHdr>, kText, kPictures},
    {"scaler", set<&L::scaler, parseScaler>, kText, kPictures},
    {"display-aspect", set<&L::displayAspect, parseDisplayAspect>, kText, kPictures},
    {"rotate", set<&L::rotate, parseAnyNumber>, kNumber, kPictures},
    {"hflip", turn<&L::hflip>, kSwitch, kPictures},
    {"vflip", turn<&L::vflip>, kSwitch, kPictures},
    {"effect", set<&L::effect, parseText>, kText, kPictures},
    {"watermark", set<&L::watermark, parseWatermark>, kText, kPictures},
    {"subtitles", set<&L::subtitles, parseText>, kText, kPictures, "subtitles"},
    {"subtitle-track", set<&L::subtitleTrack, parseTracks>, kText, kPictures, "subtitles"},
    {"ignore-styles", turn<&L::ignoreStyles>, kSwitch, kPictures},
    {"subtitle-font", set<&L::subtitleFont, parseFont>, kText, kPictures},
    {"subtitle-color", set<&L::subtitleColor, parseColor>, kText, kPictures},
    {"subtitle-outline", set<&L::subtitleOutline, parseOutline>, kNumber, kPictures},
});

template <size_t number>
void setNumber(LookSettings& look, std::string_view option, const std::string& text) {
  constexpr LookNumber kFacts = kLookNumbers[number];
  look.*kFacts.member = static_cast<float>(parseNumber(option, text, kFacts.low, kFacts.high));
}

/// The rows of numbers, behind the others.
template <size_t... number>
constexpr auto withNumbers(std::index_sequence<number...> /*all*/) {
  std::array<Row<LookSettings>, kOtherLookRows.size() + sizeof...(number)> rows{};
  const std::array numbers{
      Row<LookSettings>{kLookNumbers[number].option, setNumber<number>, kNumber, kPictures}...};
  std::ranges::copy(numbers, std::ranges::copy(kOtherLookRows, rows.begin()).out);
  return rows;
}

constexpr auto kLookRows = withNumbers(std::make_index_sequence<kLookNumbers.size()>());

template <typename Settings>
const Row<Settings>* find(std::span<const Row<Settings>> rows, const std::string& name) {
  const auto row = std::ranges::find(rows, name, &Row<Settings>::name);
  return row == rows.end() ? nullptr : &*row;
}

const Row<C>* rowOf(const std::string& name) { return find<C>(kRows, name); }
const Row<L>* lookRowOf(const std::string& name) { return find<L>(kLookRows, name); }

[[noreturn]] void refuseName(const std::string& name) {
  throw Failure::settings(
      fmt::format("there is no option '{}'{}", name, nearestNames(name, conversionOptionNames())),
      name);
}

template <typename Settings>
void apply(const Row<Settings>& row, const ConversionOption& option, Settings& settings) {
  try {
    if (option.value.empty()) throw Failure::settings(option.name + ": the value is empty");
    row.set(settings, option.name, option.value);
  } catch (const Failure& failure) {
    throw Failure::settings(failure.what(), option.name);
  }
}

/// What is said of an option, whichever table it is in.
struct Facts {
  Shapes shapes;
  std::string_view saysTheSame;
  bool ofEncoder;
};

Facts factsOf(const std::string& name) {
  if (const auto* row = rowOf(name)) return {row->shapes, row->saysTheSame, row->ofEncoder};
  if (const auto* row = lookRowOf(name)) return {row->shapes, row->saysTheSame, row->ofEncoder};
  refuseName(name);
}

/// Whether `strong` leaves no room for `weak`.
bool displaces(const ConversionOption& strong, const ConversionOption& weak) {
  const Facts facts = factsOf(weak.name);
  if (strong.name == weak.name)
    return formOf(weak.name) != kList || strong.value.substr(0, strong.value.find('=')) ==
                                             weak.value.substr(0, weak.value.find('='));
  if (!facts.saysTheSame.empty() && factsOf(strong.name).saysTheSame == facts.saysTheSame)
    return true;
  if (strong.name == "chapters" && weak.name == "start") return true;
  const auto isFormat = [](const std::string& name) { return name == "depth" || name == "chroma"; };
  if ((isFormat(strong.name) && weak.name == "compatible") ||
      (isFormat(weak.name) && strong.name == "compatible"))
    return true;
  const bool isVideo = strong.name == "video-codec";
  if (!isVideo && strong.name != "audio-codec")
    return strong.name == "audio-tracks" && strong.value == "none" &&
           (facts.shapes == kSound || weak.name == "audio-codec");
  if (facts.shapes != (isVideo ? kPictures : kSound)) return false;
  return facts.ofEncoder || strong.value == "copy" || strong.value == "none";
}

}  // namespace

std::vector<std::string> conversionOptionNames() {
  std::vector<std::string> names;
  for (const auto& row : kRows) names.emplace_back(row.name);
  for (std::string& name : lookOptionNames()) names.push_back(std::move(name));
  return names;
}

std::vector<std::string> lookOptionNames() {
  std::vector<std::string> names;
  for (const auto& row : kLookRows) names.emplace_back(row.name);
  return names;
}

OptionForm formOf(const std::string& name) {
  if (const auto* row = rowOf(name)) return row->form;
  if (const auto* row = lookRowOf(name)) return row->form;
  refuseName(name);
}

void applyOptions(const ConversionOptions& options, ConversionSettings& settings) {
  const auto isGiven = [&](std::string_view name) {
    return std::ranges::count(options, name, &ConversionOption::name) > 0;
  };
  if (isGiven("audio-tracks") && isGiven("mix"))
    throw Failure::settings("--audio-tracks and --mix both choose the sound");
  for (const ConversionOption& option : options) {
    if (const auto* row = rowOf(option.name))
      apply(*row, option, settings);
    else if (const auto* lookRow = lookRowOf(option.name))
      apply(*lookRow, option, settings.look);
    else
      refuseName(option.name);
  }
}

void applyOptions(const ConversionOptions& options, LookSettings& look) {
  for (const ConversionOption& option : options) {
    const auto* const row = lookRowOf(option.name);
    if (!row) refuseName(option.name);
    apply(*row, option, look);
  }
}

ConversionOptions withDefaults(const ConversionOptions& stronger, const ConversionOptions& weaker) {
  ConversionOptions both;
  for (const ConversionOption& weak : weaker) {
    const auto isAbove = [&](const ConversionOption& strong) { return displaces(strong, weak); };
    if (std::ranges::none_of(stronger, isAbove)) both.push_back(weak);
  }
  both.insert(both.end(), stronger.begin(), stronger.end());
  return both;
}

}  // namespace kestrel
