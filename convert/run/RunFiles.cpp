#include "convert/run/RunFiles.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <set>
#include <utility>

#include <kestrel/convert/Failure.h>
#include "convert/run/PlannedOutput.h"
#include "support/LanguageCode.h"
#include "support/LastingTags.h"

extern "C" {
#include <libavformat/avformat.h>
}

namespace kestrel {

namespace {

using Kind = StreamInfo::Kind;

/// No encoder's delay is longer; microseconds.
constexpr int64_t kLongestDelay = 1000000;

/// The plan of the pictures in one of their sizes.
ConversionPlan rungOf(const ConversionPlan& plan, const PictureRung& rung) {
  ConversionPlan own = plan;
  own.format.width = rung.width;
  own.format.height = rung.height;
  own.format.aspect = static_cast<float>(rung.aspect);
  own.format.video_bitrate = rung.bitrate;
  return own;
}

const char* rangeOf(int transfer) {
  if (transfer == AVCOL_TRC_SMPTE2084) return "PQ";
  return transfer == AVCOL_TRC_ARIB_STD_B67 ? "HLG" : "SDR";
}

bool has(const PlannedStream& planned, const char* flag) {
  return std::ranges::count(planned.disposition, flag) > 0;
}

/// How pictures are shown, as their stream tells.
void describe(Rendition& rendition, const AVStream& stream) {
  const AVCodecParameters& pictures = *stream.codecpar;
  const AVRational pixel = stream.sample_aspect_ratio;
  rendition.width = pixel.num > 0 && pixel.den > 0
                        ? static_cast<int32_t>(std::lround(pictures.width * av_q2d(pixel)))
                        : pictures.width;
  rendition.height = pictures.height;
  rendition.range = rangeOf(pictures.color_trc);
}

/// What people read: the track's title, its language, or its number among those of its kind. No
/// other of `others` has it.
std::string nameOf(const PlannedStream& planned, const StreamInfo& source, size_t number,
                   const std::deque<Rendition>& others) {
  const auto title = planned.tags.find("title");
  std::string name = title == planned.tags.end() ? source.languageName : title->second;
  if (name.empty())
    name = fmt::format("{} {}", planned.kind == Kind::kAudio ? "Sound" : "Subtitles", number);
  const auto isTaken = [&](const std::string& wanted) {
    return std::ranges::count(others, wanted, &Rendition::name) > 0;
  };
  std::string free = name;
  for (int again = 2; isTaken(free); ++again) free = fmt::format("{} ({})", name, again);
  return free;
}

/// A rendition of sound or subtitles, with what people choose by.
Rendition tracked(Rendition::Kind kind, const PlannedStream& planned, const MediaInfo& info,
                  const std::deque<Rendition>& others) {
  const StreamInfo& source = info.streams[planned.sources.front()];
  const auto number = static_cast<size_t>(std::ranges::count(others, kind, &Rendition::kind)) + 1;
  const bool hasDefault = std::ranges::any_of(
      others, [&](const Rendition& other) { return other.kind == kind && other.isDefault; });
  const bool isSound = kind == Rendition::Kind::kSound;
  const auto language = planned.tags.find("language");
  Rendition rendition{.kind = kind,
                      .folder = fmt::format("{}-{}", isSound ? "sound" : "subtitles", number)};
  rendition.name = nameOf(planned, source, number, others);
  if (language != planned.tags.end()) rendition.language = shortLanguageCode(language->second);
  rendition.isDefault = !hasDefault && has(planned, "default");
  rendition.isForced = has(planned, "forced");
  return rendition;
}

}  // namespace

RunFiles::RunFiles() { files_.emplace_back(); }

/// The first file is there from the beginning; others follow it.
LMFFMovieFileOutput& RunFiles::add() {
  return files_.front().isMovieOpen() ? files_.emplace_back() : files_.front();
}

const std::vector<RunFiles::Output>& RunFiles::open(const Job& job, const std::string& path) {
  if (job.plan.segment)
    openRenditions(job, path);
  else
    openOne(job, path);
  return outputs_;
}

void RunFiles::openOne(const Job& job, const std::string& path) {
  LMFFMovieFileOutput& file = first();
  setUpOutput(file, job.plan, path, job.interrupt);
  if (job.take) file.setPacketTaker(job.take);
  if (job.plan.keepsMetadata) {
    file.setMetadata(lastingTags(job.info.tags));
    file.setChapters(chaptersOf(job.info, job.plan.start, job.plan.end.value_or(INT64_MAX)));
  }
  // From a later start on, packets that bring a delay are sound that was heard before.
  if (job.plan.start == 0) file.setCopiedSoundBegin(-kLongestDelay);
  for (const PlannedStream& planned : job.plan.streams)
    if (planned.isKept() && job.isWritten(planned)) {
      const AVStream* const made = job.madeOf ? job.madeOf(planned) : nullptr;
      AVStream* const stream =
          made ? openMadeStream(file, job.plan, planned, *made)
               : openPlannedStream(file, job.plan, planned, job.input, job.samplesOf(planned));
      if (!stream) requireOutput(file, job.target);
      outputs_.push_back({&planned, stream, {&file}});
    }
  file.startOutput();
  requireOutput(file, job.target);
}

/// The pictures come first, so that theirs is the first file.
void RunFiles::openRenditions(const Job& job, const std::string& folder) {
  folder_ = folder;
  for (const Kind kind : {Kind::kVideo, Kind::kAudio, Kind::kSubtitle})
    for (const PlannedStream& planned : job.plan.streams) {
      if (planned.kind != kind || !planned.isKept() || planned.isCover) continue;
      if (kind == Kind::kVideo) openPictures(job, planned, folder);
      if (kind == Kind::kAudio) openSound(job, planned, folder);
      if (kind == Kind::kSubtitle) openSubtitles(job, planned, folder);
    }
  const auto isDefault = [](const Rendition& rendition) {
    return rendition.kind == Rendition::Kind::kSound && rendition.isDefault;
  };
  const auto sound = std::ranges::find(renditions_, Rendition::Kind::kSound, &Rendition::kind);
  if (sound != renditions_.end() && std::ranges::none_of(renditions_, isDefault))
    sound->isDefault = true;
}

void RunFiles::begin(const Job& job, LMFFMovieFileOutput& file, Rendition& rendition,
                     const std::string& folder) {
  if (job.plan.keepsMetadata) file.setMetadata(lastingTags(job.info.tags));
  if (job.plan.start == 0) file.setCopiedSoundBegin(-kLongestDelay);
  SegmentFiles& segments = segments_.emplace_back(folder, rendition);
  file.setFragments(*job.plan.segment,
                    [&segments](const Fragment& fragment) { return segments.take(fragment); });
  file.startOutput();
  requireOutput(file, job.target);
}

void RunFiles::openPictures(const Job& job, const PlannedStream& planned,
                            const std::string& folder) {
  const auto& format = job.plan.format;
  const bool isEncoded = planned.action == StreamAction::kEncode;
  std::vector<PictureRung> rungs{
      {format.width, format.height, format.aspect, format.video_bitrate}};
  if (isEncoded) rungs.insert(rungs.end(), job.plan.rungs.begin(), job.plan.rungs.end());
  Output output{.planned = &planned};
  for (const PictureRung& rung : rungs) {
    const ConversionPlan plan = rungOf(job.plan, rung);
    LMFFMovieFileOutput& file = add();
    setUpOutput(file, plan, folder, job.interrupt);
    AVStream* const stream = openPlannedStream(file, plan, planned, job.input);
    if (!stream) requireOutput(file, job.target);
    Rendition& rendition = renditions_.emplace_back();
    describe(rendition, *stream);
    rendition.folder = fmt::format("{}x{}", stream->codecpar->width, stream->codecpar->height);
    rendition.isIndependent = isEncoded;
    rendition.rate =
        isEncoded
            ? plan.rate()
            : job.info.streams[planned.sources.front()].video.frameRate.value_or(Rational{0, 1});
    begin(job, file, rendition, folder);
    if (!output.stream) output.stream = stream;
    output.files.push_back(&file);
  }
  outputs_.push_back(std::move(output));
}

void RunFiles::openSound(const Job& job, const PlannedStream& planned, const std::string& folder) {
  LMFFMovieFileOutput& file = add();
  setUpOutput(file, job.plan, folder, job.interrupt);
  AVStream* const stream =
      openPlannedStream(file, job.plan, planned, job.input, job.samplesOf(planned));
  if (!stream) requireOutput(file, job.target);
  Rendition& rendition =
      renditions_.emplace_back(tracked(Rendition::Kind::kSound, planned, job.info, renditions_));
  rendition.channels = stream->codecpar->ch_layout.nb_channels;
  begin(job, file, rendition, folder);
  outputs_.push_back({&planned, stream, {&file}});
}

/// A file of its own form, which players fetch whole: it is small.
void RunFiles::openSubtitles(const Job& job, const PlannedStream& planned,
                             const std::string& folder) {
  Rendition& rendition = renditions_.emplace_back(
      tracked(Rendition::Kind::kSubtitles, planned, job.info, renditions_));
  rendition.segments = {{.file = "subtitles.vtt"}};
  const SegmentFiles made(folder, rendition);
  ConversionPlan plan = job.plan;
  plan.formatName = "webvtt";
  LMFFMovieFileOutput& file = add();
  setUpOutput(file, plan, fmt::format("{}/{}/subtitles.vtt", folder, rendition.folder),
              job.interrupt);
  AVStream* const stream = openPlannedStream(file, plan, planned, job.input);
  if (!stream) requireOutput(file, job.target);
  file.startOutput();
  requireOutput(file, job.target);
  outputs_.push_back({&planned, stream, {&file}});
}

void RunFiles::stop() {
  for (LMFFMovieFileOutput& file : files_) file.stopOutput();
}

void RunFiles::require(const std::string& target) const {
  for (const LMFFMovieFileOutput& file : files_) requireOutput(file, target);
}

int64_t RunFiles::refusedPackets() const {
  int64_t count = 0;
  for (const LMFFMovieFileOutput& file : files_) count += file.refusedPackets();
  return count;
}

int64_t RunFiles::picturesEncodedToHide() const {
  int64_t count = 0;
  for (const LMFFMovieFileOutput& file : files_) count += file.picturesEncodedToHide();
  return count;
}

std::vector<Rendition> RunFiles::writePlaylists(const std::string& target) {
  int64_t length = 0;
  for (const Rendition& rendition : renditions_) length = std::max(length, rendition.length());
  for (Rendition& rendition : renditions_)
    if (rendition.kind == Rendition::Kind::kSubtitles) rendition.segments.front().duration = length;
  const std::vector<Rendition> all(renditions_.begin(), renditions_.end());
  for (const Rendition& rendition : all) {
    std::ofstream file(std::filesystem::path(folder_) / rendition.folder / kPlaylistName);
    file << mediaPlaylist(rendition, targetDuration(all, rendition.kind));
    file.close();
    if (file.fail())
      throw Failure::output(target, fmt::format("cannot write '{}': its playlists", target));
  }
  return all;
}

}  // namespace kestrel
