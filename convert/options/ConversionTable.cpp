#include "convert/options/ConversionTable.h"

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "convert/values/OptionValues.h"

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

int parseSampleRate(std::string_view option, const std::string& text) {
  return parseWholeNumber(option, text, 1000, 768000);
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

TargetQuality& targetOf(ConversionSettings& settings) {
  if (!settings.targetQuality) settings.targetQuality.emplace();
  return *settings.targetQuality;
}

void setTarget(ConversionSettings& settings, std::string_view option, const std::string& text) {
  targetOf(settings).score = parseTargetScore(option, text);
}

void setPer(ConversionSettings& settings, std::string_view option, const std::string& text) {
  targetOf(settings).per = parsePer(option, text);
}

void setUnlessSmaller(ConversionSettings& settings, std::string_view option,
                      const std::string& text) {
  targetOf(settings).unlessSmaller = parseShare(option, text, 1);
}

void setMaxCost(ConversionSettings& settings, std::string_view option, const std::string& text) {
  targetOf(settings).maxCost = parseShare(option, text, TargetQuality::kMostCost);
}

void setSampleReport(ConversionSettings& settings, std::string_view /*option*/,
                     const std::string& text) {
  targetOf(settings).report = text;
}

using C = ConversionSettings;
using Rows = std::vector<OptionRow<C>>;
constexpr auto kNumber = OptionForm::kNumber;
constexpr auto kSwitch = OptionForm::kSwitch;
constexpr auto kList = OptionForm::kList;
constexpr auto kPictures = Shapes::kPictures;
constexpr auto kSound = Shapes::kSound;
constexpr auto kNothing = Shapes::kNothing;

OptionRow<C> row(const OptionInfo& info, OptionRow<C>::Setter set, Shapes shapes = kNothing,
                 std::string_view saysTheSame = {}, bool ofEncoder = false) {
  return {info, std::move(set), shapes, saysTheSame, ofEncoder};
}

Rows pictureRows() {
  return {
      row({"video-codec", "NAME",
           "codec (h264, hevc, vp9, av1 …), encoder (libx264 …), 'copy' or 'none'"},
          setCodec<&C::video, &C::videoCodec>),
      row({"size", "WxH|720p|50%",
           "size in pixels; a side '-' keeps the shape; 720p fits into 1280x720"},
          setSize, kPictures, "size"),
      row({"ladder", "1080,720,480",
           "of HLS: the pictures in several sizes, each as --size 720p has it"},
          set<&C::ladder, parseLadder>, kPictures, "size"),
      row({"no-upscale", "", "pictures that are smaller than the size keep their own", kSwitch},
          turn<&C::onlyShrinks>, kPictures),
      row({"fps", "N[/D]", "pictures per second (default: source, each picture at its own time)"},
          set<&C::fps, parseRateOrSource>, kPictures, "rate"),
      row({"max-fps", "N[/D]", "pictures per second at most"}, set<&C::maxFps, parseRate>,
          kPictures, "rate"),
      row({"aspect", "W:H", "display aspect (default: the source's)"}, set<&C::aspect, parseAspect>,
          kPictures),
      row({"quality", "N",
           "how good the pictures are, 0 to 100, alike for all encoders (default: 60)", kNumber},
          set<&C::quality, parseAnyNumber>, kPictures, "quality"),
      row({"crf", "N", "the same in the encoder's own numbers", kNumber},
          set<&C::crf, parseAnyNumber>, kPictures, "quality", true),
      row({"video-bitrate", "RATE", "bits per second, in place of a quality"},
          set<&C::videoBitrate, parseBitRate>, kPictures, "quality"),
      row({"size-limit", "SIZE", "the whole file's most bytes: 25M (25 million), 700Mi"},
          set<&C::sizeLimit, parseBytes>, kPictures, "quality"),
      row({"target-quality", "NAME|N",
           "how like the source they look: visually-lossless, high, good or a score (90, 80, 70), "
           "found by trying and measured"},
          setTarget, kPictures, "quality"),
      row({"per", "WHAT", "with it: file (default), or scene: each gets what it needs"}, setPer,
          kPictures),
      row({"unless-smaller", "10%",
           "with it: copy pictures where encoding does not save so much of the file"},
          setUnlessSmaller, kPictures),
      row({"max-cost", "N%",
           "with it: how many pictures are tried and measured at most (default: 35%)"},
          setMaxCost, kPictures),
      row({"sample-report", "FILE.json",
           "with it: write what was tried, and draw it beside, as .svg"},
          setSampleReport, kPictures),
      row({"passes", "N",
           "1 or 2: how often the encoder goes through the pictures (default: 2 for a size limit)",
           kNumber},
          set<&C::passes, parsePasses>, kPictures),
      row({"encoder-preset", "NAME", "the encoder's preset (see 'kestrel encoders')"},
          set<&C::encoderPreset, parseText>, kPictures, {}, true),
      row({"keyframes", "TIME", "the time between key pictures (default: 10s)", kNumber},
          set<&C::keyframes, parseSeconds>, kPictures),
      row({"compatible", "", "what every player plays: 8-bit 4:2:0 pictures, stereo sound",
           kSwitch},
          turn<&C::isCompatible>, kPictures),
      row({"depth", "BITS", "bits of a component: 8, 10 … (default: the source's)", kNumber},
          set<&C::depth, parseBits>, kPictures),
      row({"chroma", "SAMPLES", "samples of colour: 420, 422 or 444 (default: the source's)"},
          set<&C::chroma, parseChroma>, kPictures),
      row({"deinterlace", "WHEN",
           "auto: where combs are found; on: all; off; bob: as auto, each field a picture "
           "(default: "
           "auto)"},
          setDeinterlacing, kPictures),
      row({"denoise", "STRENGTH", "take noise away: light, medium or strong"},
          set<&C::denoising, parseDenoising>, kPictures),
      row({"video-option", "KEY=VALUE", "an option of the encoder's own", kList},
          add<&C::videoOptions>, kPictures, {}, true),
  };
}

Rows soundRows() {
  return {
      row({"audio-codec", "NAME",
           "codec (aac, mp3, opus, flac …), 'copy', 'none' or 'auto' (default): copied where its "
           "codec is usual in the container and nothing changes it"},
          setSoundCodec),
      row({"audio-copy", "ac3,dts",
           "codecs that are copied where the container holds them: names, 'pcm' or 'all'"},
          set<&C::audioCopy, parseNames>, kSound),
      row({"audio-tracks", "0,2|LANG",
           "tracks to keep (default: all): numbers from 0, a language code, 'all' or 'none'"},
          setTracks, kNothing, "tracks"),
      row({"mix", "0,2|all", "tracks that become one, chosen likewise"}, setMix, kSound, "tracks"),
      row({"audio-bitrate", "RATE",
           "bits per second (default: 96k for each channel, less below 44.1 kHz)"},
          set<&C::audioBitrate, parseBitRate>, kSound),
      row({"sample-rate", "HZ", "Hz (default: the track's own), from 1000 to 768000", kNumber},
          set<&C::sampleRate, parseSampleRate>, kSound),
      row({"channels", "LAYOUT", "layout: mono, stereo, 5.1 … (default: the track's own)"},
          set<&C::channelLayout, parseChannels>, kSound),
      row({"volume", "X", "factor on the loudness (default: 1)", kNumber},
          set<&C::volume, parseAnyNumber>, kSound, "level"),
      row({"loudness", "LUFS",
           "how loud each track gets (EBU R 128): -23, -16 …; the input is read twice", kNumber},
          set<&C::loudness, parseAnyNumber>, kSound, "level"),
      row({"audio-option", "KEY=VALUE", "an option of the encoder's own", kList},
          add<&C::audioOptions>, kSound, {}, true),
  };
}

Rows otherRows() {
  return {
      row({"subtitles-keep", "0,2|LANG",
           "subtitles that go along (default: all the container holds): numbers from 0, a language "
           "code, 'all' or 'none'"},
          setSubtitles),
      row({"no-attachments", "", "leave covers and fonts out", kSwitch},
          turn<&C::keepsAttachments, false>),
  };
}

Rows fileRows() {
  return {
      row({"start", "TIME", "seconds, [hh:]mm:ss.mmm, 1m30s, or 50% of the length"},
          set<&C::start, parseMoment>, kNothing, "start"),
      row({"end", "TIME", "where to stop, in the source's time"}, set<&C::end, parseMoment>,
          kNothing, "end"),
      row({"duration", "TIME", "how much to convert"}, set<&C::duration, parseMoment>, kNothing,
          "end"),
      row({"chapters", "A[-B]", "chapters to convert, counted from 1"},
          set<&C::chapters, parseChapters>, kNothing, "end"),
      row({"title", "N|main", "of a disc: a number (see 'kestrel dvd') or 'main'"},
          set<&C::title, parseTitle>),
      row({"angle", "N", "of a title that has several, counted from 1 (default: 1)", kNumber},
          set<&C::angle, parseAngle>),
      row({"allow-protocol", "NAME",
           "read inputs that are no files, too: https, rtsp, concat …; several, or with commas",
           kList},
          addProtocols),
      row({"chapters-from", "WHAT", "where chapters come from: input (default) or scenes"},
          set<&C::chapterSource, parseChapterSource>),
      row({"no-metadata", "", "leave tags and chapters out", kSwitch},
          turn<&C::keepsMetadata, false>),
      row({"format", "NAME", "the container, where no extension tells it: mkv, ts, mp4, wav …"},
          set<&C::format, parseText>),
      row({"fragment", "TIME",
           "MPEG-4 in fragments that last so long, each from a key picture on; HLS: segments "
           "(default: 6)",
           kNumber},
          set<&C::fragment, parseSeconds>),
  };
}

/// The rows of one heading.
Rows under(const std::string& heading, Rows rows) {
  for (auto& row : rows) row.info.group = heading;
  return rows;
}

}  // namespace

const std::vector<OptionRow<ConversionSettings>>& conversionTable() {
  static const Rows kTable = [] {
    Rows all;
    for (const Rows& rows :
         {under("Picture", pictureRows()), under("Sound", soundRows()),
          under("Other streams", otherRows()), under("Span and file", fileRows())})
      all.insert(all.end(), rows.begin(), rows.end());
    return all;
  }();
  return kTable;
}

}  // namespace kestrel
