#include "convert/join/JoinPlan.h"

#include <kestrel/LMFFFormat.h>
#include <kestrel/LMMediaSource.h>
#include <kestrel/StreamFit.h>

#include <fmt/format.h>

#include <algorithm>
#include <initializer_list>
#include <string_view>

#include <kestrel/convert/Disc.h>
#include <kestrel/convert/Failure.h>
#include <kestrel/convert/Text.h>
#include "convert/plan/ConversionPlanner.h"
#include "convert/probe/Codecs.h"
#include "convert/probe/Input.h"
#include "convert/probe/InputOutline.h"
#include "convert/probe/Streams.h"
#include "convert/probe/StreamsLeftOut.h"
#include "support/BestStream.h"
#include "support/Containers.h"
#include "support/copy/CodecData.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
}

namespace kestrel {

namespace {

/// How `streamDifferences` names what nothing continues.
constexpr std::string_view kFramesThatEnd = "frames";

std::string describe(const StreamInfo& stream) {
  const std::string codec = stream.codec.empty() ? "unknown codec" : stream.codec;
  if (stream.kind == StreamInfo::Kind::kVideo) {
    const Rational rate = stream.video.frameRate.value_or(kUsualRate);
    return fmt::format("{} {}x{} {}/s", codec, stream.video.width, stream.video.height,
                       formatNumber(static_cast<double>(rate.num) / rate.den, 2));
  }
  return fmt::format("{} {} Hz, {} channel{}", codec, stream.audio.sampleRate,
                     stream.audio.channels, stream.audio.channels == 1 ? "" : "s");
}

std::string describe(const JoinPart& part) {
  std::vector<std::string> words;
  if (part.video) words.push_back(describe(part.info.streams[*part.video]));
  for (const uint32_t index : part.audios) words.push_back(describe(part.info.streams[index]));
  return fmt::format("{}", fmt::join(words, " + "));
}

std::string listed(std::initializer_list<std::string> words) {
  std::vector<std::string> all(words);
  std::erase(all, "");
  return fmt::format("{}", fmt::join(all, ", "));
}

/// What the output has a place for.
struct Places {
  bool pictures = false;
  size_t sounds = 0;
  bool chapters = false;
};

/// For what is copied, or else encoded like the first part.
Places placesIn(const std::string& output, const JoinPart& first, bool isCopied) {
  const AVOutputFormat& container = outputFormatFor(output);
  if (isCopied) return {true, first.audios.size(), takesLateChapters(container)};
  const bool holdsPictures = defaultVideoCodec(container, output) != AV_CODEC_ID_NONE;
  const bool holdsSound = defaultAudioCodec(container) != AV_CODEC_ID_NONE;
  return {first.video && holdsPictures, holdsSound ? first.audios.size() : 0,
          takesLateChapters(container)};
}

/// What goes into the output beside pictures and sound; "" for nothing.
std::string kept(const JoinPart& part, const Places& places) {
  return listed(
      {part.subtitleTracks(), counted(places.chapters ? part.info.chapters.size() : 0, "chapter")});
}

/// The streams of a part that go into the output.
IndexSet takenStreams(const JoinPart& part, const Places& places) {
  IndexSet taken(part.subtitles.begin(), part.subtitles.end());
  if (part.video && places.pictures) taken.insert(*part.video);
  for (size_t i = 0; i < std::min(places.sounds, part.audios.size()); ++i)
    taken.insert(part.audios[i]);
  return taken;
}

/// What of a part does not go into the output; "" for nothing.
std::string leftOut(const JoinPart& part, const Places& places) {
  StreamsLeftOut left = streamsLeftOut(*part.outline, takenStreams(part, places));
  left.chapters = places.chapters ? 0 : part.info.chapters.size();
  return left.listed();
}

std::vector<const AVStream*> subtitlesOf(const JoinPart& part) {
  const AVFormatContext& context = *part.outline;
  std::vector<const AVStream*> all(context.streams, context.streams + context.nb_streams);
  std::erase_if(all, [](const AVStream* stream) {
    return stream->codecpar->codec_type != AVMEDIA_TYPE_SUBTITLE;
  });
  return all;
}

/// Takes in the subtitles that all parts have alike, where they are as many, and that the container
/// holds.
void takeSubtitles(std::vector<JoinPart>& parts, const std::string& output) {
  std::vector<std::vector<const AVStream*>> tracks;  // of each part
  for (const JoinPart& part : parts) {
    tracks.push_back(subtitlesOf(part));
    if (tracks.back().size() != tracks.front().size()) return;
  }
  for (size_t i = 0; i < tracks.front().size(); ++i) {
    const AVStream& first = *tracks.front()[i];
    const bool fits = std::ranges::all_of(
        tracks, [&](const auto& own) { return streamDifferences(first, *own[i]).empty(); });
    if (!fits || !holdsSubtitles(outputFormatFor(output), first.codecpar->codec_id, output))
      continue;
    for (size_t k = 0; k < parts.size(); ++k)
      parts[k].subtitles.push_back(static_cast<uint32_t>(tracks[k][i]->index));
  }
}

/// What does not fit, in words for people.
struct Problems {
  std::vector<std::string> pictures;
  std::vector<std::string> sound;
  std::vector<std::string> both;

  std::vector<std::string> all() const {
    std::vector<std::string> listed = pictures;
    for (const auto* more : {&sound, &both})
      listed.insert(listed.end(), more->begin(), more->end());
    return listed;
  }
};

std::string sentenceOf(const StreamDifference& difference) {
  if (difference.property == kFramesThatEnd)
    return "frames can't follow the short last one before them (encoded again, they lose nothing)";
  return fmt::format("{} {} instead of {}", difference.property, difference.second,
                     difference.first);
}

/// What of a part does not fit the first one.
Problems differences(const JoinPart& first, const JoinPart& part) {
  if (first.video.has_value() != part.video.has_value())
    return {{part.video ? "it has pictures" : "it has no pictures"}, {}, {}};
  Problems problems;
  const auto streamOf = [](const JoinPart& of, uint32_t index) -> const AVStream& {
    return *of.outline->streams[index];
  };
  if (first.video)
    for (const auto& each :
         streamDifferences(streamOf(first, *first.video), streamOf(part, *part.video)))
      problems.pictures.push_back(sentenceOf(each));
  if (first.audios.size() != part.audios.size()) {
    problems.sound.push_back(fmt::format("it has {} sound track{} instead of {}",
                                         part.audios.size(), part.audios.size() == 1 ? "" : "s",
                                         first.audios.size()));
    return problems;
  }
  for (size_t i = 0; i < first.audios.size(); ++i)
    for (const auto& each :
         streamDifferences(streamOf(first, first.audios[i]), streamOf(part, part.audios[i])))
      problems.sound.push_back("sound " + sentenceOf(each));
  return problems;
}

/// What the part before leaves no place for, unless the first one does not either.
void addEnds(const JoinPart& before, const JoinPart& part, Problems& problems) {
  if (before.audios.size() != part.audios.size() || !problems.sound.empty()) return;
  for (size_t i = 0; i < part.audios.size(); ++i)
    for (const auto& each : streamDifferences(*before.outline->streams[before.audios[i]],
                                              *part.outline->streams[part.audios[i]]))
      if (each.property == kFramesThatEnd) problems.sound.push_back("sound " + sentenceOf(each));
}

/// Whether the end of a part's sound would be lost: other containers than its own tell how long TTA
/// is to the millisecond, and decoders make nothing of the last frame then.
bool losesEnd(const JoinPart& part, const std::string& output) {
  return !keepsTta(outputFormatFor(output)) &&
         std::ranges::any_of(part.audios, [&](uint32_t index) {
           return !canBeContinued(*part.outline->streams[index]->codecpar);
         });
}

/// Why the container cannot hold the packets of the first part.
Problems containerProblems(const JoinPart& first, const std::string& output) {
  Problems problems;
  const AVOutputFormat& container = outputFormatFor(output);
  for (const AVStream* stream : first.streams())
    if (std::string refusal = refusalOf(container, *stream); !refusal.empty())
      (stream->codecpar->codec_type == AVMEDIA_TYPE_VIDEO ? problems.pictures : problems.sound)
          .push_back(std::move(refusal));
  return problems;
}

std::string tableOf(const JoinPlan& plan, const std::vector<Problems>& problems,
                    const Places& places) {
  size_t nameWidth = 0;
  size_t streamWidth = 0;
  for (const JoinPart& part : plan.parts) {
    nameWidth = std::max(nameWidth, printable(nameOf(part.input)).size());
    streamWidth = std::max(streamWidth, describe(part).size());
  }
  std::string table;
  for (size_t i = 0; i < plan.parts.size(); ++i) {
    const auto own = problems[i].all();
    const std::string verdict = i == 0 ? "sets the format"
                                : own.empty()
                                    ? "fits"
                                    : fmt::format("does not fit: {}", fmt::join(own, ", "));
    const std::string along = kept(plan.parts[i], places);
    table += fmt::format("{:<{}}  {:<{}}  {}{}\n", printable(nameOf(plan.parts[i].input)),
                         nameWidth, describe(plan.parts[i]), streamWidth, verdict,
                         along.empty() ? "" : "; kept: " + along);
  }
  return table;
}

JoinPart lookInto(const JoinInput& input, const Interrupt& interrupt) {
  JoinPart part;
  part.input = input;
  part.source = openInput(input, interrupt);
  const AVFormatContext* context = part.source->formatContext();
  part.outline = outlineOf(*context);
  part.info = mediaInfoOf(*part.source);
  part.video = part.info.mainVideo;
  part.audios = soundTracks(*context);
  if (!part.video && part.audios.empty())
    throw Failure::input(input.path, fmt::format("'{}' has no picture and no sound", input.path));
  part.release();
  return part;
}

}  // namespace

std::string nameOf(const JoinInput& input) {
  if (!input.title) return input.path;
  std::string name = input.path + "#";
  name += *input.title == kMainTitle ? "main" : fmt::format("{}", *input.title);
  return input.angle == 1 ? name : fmt::format("{}.{}", name, input.angle);
}

void JoinPart::release() const {
  const AVFormatContext* context = source->formatContext();
  const AVIOContext* io = context ? context->pb : nullptr;  // none: the demuxer opens files itself
  if (!io || (io->seekable & AVIO_SEEKABLE_NORMAL)) source->close();
}

std::vector<AVStream*> JoinPart::streams() const {
  const AVFormatContext& context = *outline;
  std::vector<AVStream*> all;
  if (video) all.push_back(context.streams[*video]);
  for (const auto* indexes : {&audios, &subtitles})
    for (const uint32_t index : *indexes) all.push_back(context.streams[index]);
  return all;
}

std::vector<AVStream*> JoinPart::silentStreams() const {
  auto all = streams();
  std::erase_if(all, [](const AVStream* stream) {
    return stream->codecpar->codec_type == AVMEDIA_TYPE_AUDIO;
  });
  return all;
}

std::string JoinPart::subtitleTracks() const { return counted(subtitles.size(), "subtitle track"); }

std::string JoinPlan::reason() const { return fmt::format("{}", fmt::join(reasons, "; ")); }

JoinPlan planJoin(const JoinSettings& settings, const Interrupt& interrupt) {
  JoinPlan plan;
  std::vector<Problems> problems;
  bool picturesFit = true;
  for (const JoinInput& input : settings.inputs) {
    plan.parts.push_back(lookInto(input, interrupt));
    problems.push_back(plan.parts.size() == 1 ? Problems{}
                                              : differences(plan.parts.front(), plan.parts.back()));
    if (plan.parts.size() > 2)
      addEnds(plan.parts[plan.parts.size() - 2], plan.parts.back(), problems.back());
    if (input.rate != 1)
      problems.back().both.push_back(fmt::format("it plays at {} times its speed", input.rate));
    picturesFit = picturesFit && problems.back().pictures.empty() && problems.back().both.empty();
    if (const auto own = problems.back().all(); !own.empty())
      plan.reasons.push_back(fmt::format("'{}': {}", nameOf(input), fmt::join(own, ", ")));
  }
  const JoinPart& first = plan.parts.front();
  const Problems refusals = containerProblems(first, settings.output);
  if (const auto all = refusals.all(); !all.empty()) {
    plan.reasons.push_back(all.front());
    plan.keepsCodecs = false;
  }
  if (losesEnd(plan.parts.back(), settings.output))
    plan.reasons.push_back(fmt::format("'{}': {} does not keep how short TTA's last frame is",
                                       nameOf(plan.parts.back().input),
                                       outputFormatFor(settings.output).name));
  const bool mayCopy = settings.reencode != JoinSettings::Reencode::kAlways;
  const bool isCopied = plan.reasons.empty() && mayCopy;
  plan.copiesPictures =
      picturesFit && refusals.pictures.empty() && first.video && mayCopy &&
      defaultVideoCodec(outputFormatFor(settings.output), settings.output) != AV_CODEC_ID_NONE;
  if (isCopied || plan.copiesPictures) takeSubtitles(plan.parts, settings.output);
  const Places places = placesIn(settings.output, first, isCopied);
  for (const JoinPart& part : plan.parts) {
    const auto tell = [&](const std::string& what) {
      if (!what.empty()) plan.leftOut.push_back(leftOutOf(nameOf(part.input), what));
    };
    tell(leftOut(part, places));
    if (part.video && (isCopied || plan.copiesPictures))
      tell(lostTurn(*part.outline->streams[*part.video], outputFormatFor(settings.output)));
  }
  plan.table = tableOf(plan, problems, places);
  return plan;
}

}  // namespace kestrel
