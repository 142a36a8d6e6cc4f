#include <kestrel/convert/Join.h>

#include <kestrel/LMMediaSource.h>
#include <kestrel/LMMovieComposition.h>
#include <kestrel/LMMovieCompositionTrack.h>

#include <fmt/format.h>

#include <algorithm>
#include <optional>
#include <utility>

#include <kestrel/convert/Failure.h>
#include <kestrel/convert/OutputFile.h>
#include "convert/join/JoinEncoder.h"
#include "convert/join/JoinFormat.h"
#include "convert/join/JoinPlan.h"
#include "convert/join/JoinRules.h"
#include "convert/join/JoinSounds.h"
#include "convert/probe/Codecs.h"
#include "convert/probe/Colors.h"
#include "convert/probe/Input.h"
#include "convert/probe/StreamsLeftOut.h"
#include "support/FFmpegOwners.h"

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace kestrel {

namespace {

/// How long the result will be, as far as the inputs tell; seconds.
double expectedLength(const std::vector<JoinPart>& parts) {
  double end = 0;
  for (const JoinPart& part : parts) {
    const double begin = part.input.position >= 0 ? part.input.position : end;
    const double duration = lm_ff_time_to_double(part.info.duration.value_or(0));
    end = begin + duration / part.input.rate;
  }
  return end;
}

/// The inputs in the order of the time line; one without a position stays behind the one before it.
/// Refuses those that begin where another one does: one of them would never be seen.
std::vector<JoinInput> inOrder(const std::vector<JoinInput>& inputs) {
  std::vector<std::pair<double, JoinInput>> placed;
  for (const JoinInput& input : inputs) {
    const double before = placed.empty() ? 0 : placed.back().first;
    placed.emplace_back(input.position >= 0 ? input.position : before, input);
  }
  std::ranges::stable_sort(placed, {}, [](const auto& place) { return place.first; });
  std::vector<JoinInput> ordered;
  for (const auto& [begin, input] : placed) {
    if (!ordered.empty() && input.position >= 0 && begin == placed[ordered.size() - 1].first)
      throw Failure::settings(
          fmt::format("'{}' and '{}' both begin at {} s", ordered.back().path, input.path, begin),
          "position");
    ordered.push_back(input);
  }
  return ordered;
}

void say(const Events& events, const std::string& sentence) {
  if (events.note) events.note(sentence);
}

/// Has the report tell what encoding loses of the sound of the first input, which sets the format.
void noteLosses(JoinPlan& plan, const std::vector<std::string>& losses) {
  for (const std::string& loss : losses) {
    std::string sentence = lostIn(nameOf(plan.parts.front().input), "sound", loss);
    if (!std::ranges::count(plan.leftOut, sentence)) plan.leftOut.push_back(std::move(sentence));
  }
}

bool isLossless(AVCodecID codec) {
  const AVCodecDescriptor* const known = avcodec_descriptor_get(codec);
  return known && (known->props & AV_CODEC_PROP_LOSSLESS) != 0 &&
         (known->props & AV_CODEC_PROP_LOSSY) == 0;
}

/// The format of what is encoded. Tells where that loses sound that nobody has asked to lose.
JoinFormat encodedFormat(const JoinSettings& settings, JoinPlan& plan) {
  JoinFormat format = formatOfJoin(settings, plan.parts.front(), plan.keepsCodecs);
  if (!settings.format.audioCodec.empty()) return format;
  for (const PlannedStream* sound : format.plan.kept(StreamInfo::Kind::kAudio)) {
    const AVStream& own = *plan.parts.front().outline->streams[sound->sources.front()];
    const auto codec = static_cast<AVCodecID>(sound->sound.codec);
    if (isLossless(own.codecpar->codec_id) && !isLossless(codec))
      noteLosses(plan,
                 {fmt::format("{} becomes {}, which does not keep every sample",
                              avcodec_get_name(own.codecpar->codec_id), avcodec_get_name(codec))});
  }
  return format;
}

/// What becomes of the inputs' packets.
enum class Way { kCopy, kCopyPictures, kEncode };

/// The sound that is encoded beside pictures that are copied.
std::shared_ptr<JoinSounds> encodedSound(const JoinSettings& settings, JoinPlan& plan) {
  const JoinFormat format = encodedFormat(settings, plan);
  auto sounds =
      std::make_shared<JoinSounds>(plan.parts, format.plan, Rational{1, AV_TIME_BASE}, true);
  noteLosses(plan, sounds->changes());
  return sounds;
}

/// Joins by copying packets, those of sound only without `sounds`. Answers why that can't be done,
/// none when it is done; throws `Failure` when the file cannot be written.
Error copyParts(const JoinSettings& settings, std::vector<JoinPart>& parts,
                const std::shared_ptr<JoinSounds>& sounds, const std::string& path, Report& report,
                const Events& events) {
  LMMovieComposition composition;
  LMMovieComposition::TrackList tracks;
  std::vector<JoinPart*> owners;  // of the tracks
  for (JoinPart& part : parts) {
    for (const AVStream* stream : sounds ? part.silentStreams() : part.streams()) {
      auto track = std::make_shared<LMMovieCompositionTrack>();
      track->setSource(part.source);
      track->setTrack(stream->index);
      track->setPosition(part.input.position >= 0 ? part.input.position
                                                  : LMMovieComposition::kBehind);
      track->setRate(part.input.rate);
      tracks.push_back(std::move(track));
      owners.push_back(&part);
    }
  }
  composition.setTracks(tracks);
  composition.setJoinedSound(sounds);
  const double length = expectedLength(parts);
  composition.setInterrupt(events.interrupt);
  composition.setProgress([&](double seconds, int64_t pictures) {
    if (events.progress)
      events.progress({seconds, length > 0 ? std::optional(length) : std::nullopt, pictures});
  });
  composition.joinToFile(path);
  if (events.isInterrupted()) return {};
  const Error error = composition.lastError();
  if (error.code == LMMovieComposition::kDoesNotJoin ||
      error.code == LMMovieComposition::kContainerRefuses)
    return error;
  if (error)
    throw Failure::output(settings.output,
                          fmt::format("cannot write '{}': {}", settings.output, error.message));
  for (size_t i = 0; i < tracks.size(); ++i) {
    const auto reached = static_cast<int64_t>(tracks[i]->reached() * 1e6);
    owners[i]->end.add({.reached = reached,
                        .error = tracks[i]->source()->lastError(),
                        .incomplete = tracks[i]->incompletePackets()});
    // Subtitles may last longer than what they belong to.
    const AVStream& stream = *owners[i]->outline->streams[tracks[i]->track()];
    if (stream.codecpar->codec_type != AVMEDIA_TYPE_SUBTITLE)
      owners[i]->read.insert(static_cast<uint32_t>(stream.index));
  }
  const auto tallies = composition.inputTallies();
  for (size_t i = 0; i < tallies.size(); ++i) {
    const std::string& own = parts[i].input.path;
    judgePackets(report, fmt::format("'{}'", own), tallies[i].refusedPackets);
    tellOfEncoded(report, events, tallies[i].picturesEncodedToHide, own);
  }
  return {};
}

/// Why nothing of a part was encoded: it has one kind of streams alone, and the output only the
/// other one, as the first part has, or else the container takes.
std::string whyUnused(const JoinPart& part, const JoinPart& first) {
  const char* own = part.video ? "pictures" : "sound";
  const char* other = part.video ? "sound" : "pictures";
  const bool isInFirst = part.video ? first.video.has_value() : !first.audios.empty();
  const std::string place = isInFirst
                                ? "the output's container"
                                : fmt::format("'{}', which sets the format,", nameOf(first.input));
  return fmt::format("it has no {}, and {} has no {}", other, place, own);
}

/// Parts that nothing could be decoded from, which is a failure where it is so of all, and those
/// that have nothing of what the output has.
void judgeEmptyParts(const std::vector<JoinPart>& parts, Report& report) {
  const JoinPart& first = parts.front();
  const auto isUnused = [](const JoinPart& part) { return part.read.empty(); };
  const auto isEmpty = [&](const JoinPart& part) {
    return isUnused(part) || (!part.wanted && part.end.reached == 0);
  };
  const auto sentence = [&](const JoinPart& part) {
    const std::string& path = part.input.path;
    return isUnused(part)
               ? fmt::format("nothing of '{}' is in the output: {}", path, whyUnused(part, first))
               : fmt::format("nothing could be decoded from '{}'", path);
  };
  if (std::ranges::all_of(parts, isEmpty)) throw Failure::input(first.input.path, sentence(first));
  for (const JoinPart& part : parts)
    if (isEmpty(part)) report.find(sentence(part));
}

/// Whether the inputs were read to their ends.
void judgeParts(Report& report, const std::vector<JoinPart>& parts) {
  for (const JoinPart& part : parts)
    judgeInput(report, nameOf(part.input), {*part.source, *part.outline, part.read, part.wanted},
               part.end);
  // What one of several inputs had and promised is nothing to say of the whole.
  report.reached = 0;
  report.promised.reset();
}

/// Refuses inputs that can be read only once.
void requireSeveralReads(const std::vector<JoinPart>& parts) {
  for (const JoinPart& part : parts) {
    part.release();
    if (part.source->isOpen())
      throw Failure::input(part.input.path,
                           fmt::format("'{}' can be read only once, and encoding reads it "
                                       "several times: store it in a file first",
                                       part.input.path));
  }
}

/// Undoes what a try to copy has done, leaves out what can only be copied, and learns of colours
/// what pictures tell alone.
void prepareEncoding(JoinPlan& plan) {
  for (JoinPart& part : plan.parts) {
    learnColors(part.info, openInput(part.input, part.source->interrupt()));
    if (!part.subtitles.empty())
      plan.leftOut.push_back(leftOutOf(nameOf(part.input), part.subtitleTracks()));
    part.subtitles.clear();
    part.read = {};
    part.end = {};
  }
}

Way wayFor(const JoinSettings& settings, const JoinPlan& plan) {
  if (settings.reencode == JoinSettings::Reencode::kAlways) return Way::kEncode;
  if (plan.reasons.empty()) return Way::kCopy;
  const bool mayEncode = settings.reencode == JoinSettings::Reencode::kAuto;
  return mayEncode && plan.copiesPictures ? Way::kCopyPictures : Way::kEncode;
}

/// Copies what can be. Answers why that can't be done after all, none when it is done.
Error copy(const JoinSettings& settings, JoinPlan& plan, Way way, const std::string& path,
           Report& report, const Events& events) {
  std::shared_ptr<JoinSounds> sounds;
  if (way == Way::kCopy) {
    say(events, "copying packets: the inputs fit together");
  } else {
    requireSeveralReads(plan.parts);
    const std::string why = plan.reason();
    say(events, "copying pictures and encoding sound anew: " + why);
    report.encoded.push_back("sound: " + why);
    sounds = encodedSound(settings, plan);
  }
  return copyParts(settings, plan.parts, sounds, path, report, events);
}

/// Encodes everything. `why` it is not copied.
void encode(const JoinSettings& settings, JoinPlan& plan, const std::string& why,
            const std::string& path, Report& report, const Events& events) {
  if (settings.reencode == JoinSettings::Reencode::kNever)
    throw Failure::input(plan.parts.front().input.path, "the inputs do not fit together: " + why);
  say(events, "encoding anew: " + why);
  report.encoded.push_back("pictures and sound: " + why);
  requireSeveralReads(plan.parts);
  prepareEncoding(plan);
  const auto losses = encodeJoin(settings, plan.parts, encodedFormat(settings, plan),
                                 expectedLength(plan.parts), path, events);
  noteLosses(plan, losses);
}

Report joinFiles(const JoinSettings& asked, const Events& events) {
  require(asked);
  JoinSettings settings = asked;
  settings.inputs = inOrder(asked.inputs);
  JoinPlan plan = planJoin(settings, events.interrupt);
  OutputFile target(settings.output, settings.replaces);
  if (events.table) events.table(plan.table);

  Report report;
  Way way = wayFor(settings, plan);
  std::string why =
      settings.reencode == JoinSettings::Reencode::kAlways ? "as asked for" : plan.reason();
  if (way != Way::kEncode) {
    const Error problem = copy(settings, plan, way, target.path(), report, events);
    if (events.isInterrupted()) return Report::interrupted();
    if (problem) {
      way = Way::kEncode;
      why = problem.message;
      plan.keepsCodecs = problem.code != LMMovieComposition::kContainerRefuses;
      report = {};
    }
  }
  if (way == Way::kEncode) encode(settings, plan, why, target.path(), report, events);
  if (events.isInterrupted()) return Report::interrupted();
  judgeParts(report, plan.parts);
  if (way == Way::kEncode) judgeEmptyParts(plan.parts, report);
  report.leftOut = std::move(plan.leftOut);
  target.commit();
  return report;
}

}  // namespace

Report join(const JoinSettings& settings, const Events& events) {
  try {
    return joinFiles(settings, events);
  } catch (const Failure& failure) {
    if (failure.kind() != Failure::Kind::kInterrupted) throw;
    return Report::interrupted();
  }
}

}  // namespace kestrel
