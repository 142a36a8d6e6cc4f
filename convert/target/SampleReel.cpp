#include "convert/target/SampleReel.h"

#include <kestrel/LMMediaSource.h>
#include <kestrel/convert/Failure.h>
#include <kestrel/convert/Join.h>
#include <kestrel/convert/Pictures.h>

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <utility>

#include "convert/probe/Input.h"
#include "convert/run/ConversionRun.h"

extern "C" {
#include <libavcodec/codec_id.h>
}

namespace kestrel {

namespace {

using Kind = StreamInfo::Kind;

/// Of the samples' pictures so many are scored: neighbours are alike.
constexpr int kEvery = 2;

double seconds(int64_t time) { return static_cast<double>(time) / 1e6; }

/// A plan for pictures that lose nothing.
ConversionPlan lossless(ConversionPlan plan) {
  plan.format.video_codec = AV_CODEC_ID_FFV1;
  plan.format.video_bitrate = 0;
  plan.videoEncoder = "ffv1";
  plan.videoOptions = {{"g", "1"}};
  plan.hdr.reset();
  return plan;
}

/// A plan for pictures that have been shaped.
ConversionPlan shaped(ConversionPlan plan, uint32_t stream) {
  plan.streams = {{.kind = Kind::kVideo, .action = StreamAction::kEncode, .sources = {stream}}};
  const Scaler scaler = plan.look.scaler;
  plan.look = {};
  plan.look.scaler = scaler;
  plan.look.hdr = HdrHandling::kKeep;
  plan.picture.reset();
  plan.treatment = {};
  plan.orientation = {};
  plan.keepsTimes = true;
  plan.keepsPictures = false;
  plan.start = 0;
  plan.end.reset();
  return plan;
}

Events quiet(const Events& events) { return {.interrupt = events.interrupt}; }

void requireNoInterrupt(const Events& events) {
  if (events.isInterrupted()) throw Failure::interrupted();
}

}  // namespace

void setCrf(ConversionPlan& plan, double crf) {
  plan.videoOptions["crf"] = fmt::format("{:.4g}", crf);
}

ConversionPlan withPicturesOnly(ConversionPlan plan) {
  for (PlannedStream& stream : plan.streams)
    if (stream.kind != Kind::kVideo || stream.isCover) stream.action = StreamAction::kNone;
  plan.formatName = "matroska";
  plan.muxerOptions.clear();
  plan.keepsMetadata = false;
  return plan;
}

SampleReel::SampleReel(const ConversionSettings& settings, const LMMediaSource& source,
                       const MediaInfo& info, const ConversionPlan& plan,
                       std::vector<Sample> samples, const Events& events)
    : settings_(settings), plan_(plan), samples_(std::move(samples)) {
  if (folder_.error())
    throw Failure::output(settings.output, fmt::format("cannot keep samples of '{}': {}",
                                                       settings.input, folder_.error().message));
  picture_ = int64_t{1'000'000} * plan.rate().den / plan.rate().num;
  for (const Sample& sample : samples_)
    stride_ = std::max(stride_, sample.end - sample.start + picture_);
  write(source, info, events);
}

void SampleReel::write(const LMMediaSource& source, const MediaInfo& info, const Events& events) {
  JoinSettings parts{.output = path("reel.mkv"), .reencode = JoinSettings::Reencode::kNever};
  ConversionPlan plan = lossless(withPicturesOnly(plan_));
  for (const Sample& sample : samples_) {
    plan.start = sample.start;
    plan.end = sample.end;
    const auto reader = source.anotherReader();
    openSource(*reader, settings_.input, events.interrupt);
    const std::string part = partPath(parts.inputs.size());
    ConversionRun(settings_, reader, info, plan, ConversionRun::Part::kAll, quiet(events))
        .write(part);
    requireNoInterrupt(events);
    if (events.progress)
      events.progress({.time = static_cast<double>(parts.inputs.size() + 1),
                       .duration = static_cast<double>(samples_.size())});
    parts.inputs.push_back(
        {.path = part, .position = seconds(stride_ * static_cast<int64_t>(parts.inputs.size()))});
  }
  reel_ = parts.inputs.size() == 1 ? parts.inputs.front().path : parts.output;
  if (parts.inputs.size() == 1) return;
  join(parts, quiet(events));
  requireNoInterrupt(events);
}

std::vector<LikenessAt> SampleReel::compare(const std::string& file, const Events& events) const {
  Pictures copy({.input = file, .deinterlacing = Deinterlacing::kOff}, events.interrupt);
  std::vector<LikenessAt> all;
  for (size_t i = 0; i < samples_.size(); ++i) {
    Pictures original({.input = partPath(i), .deinterlacing = Deinterlacing::kOff},
                      events.interrupt);
    const auto found = likeness(original, copy, {.copyStart = samples_[i].start - plan_.start});
    // What is shown first began before the sample.
    for (size_t k = 1; k < found.size(); ++k)
      all.push_back({found[k].time + samples_[i].start, found[k].score});
    if (events.progress)
      events.progress(
          {.time = static_cast<double>(i + 1), .duration = static_cast<double>(samples_.size())});
  }
  return all;
}

SampleReel::Probe SampleReel::probe(double crf, const Events& events) const {
  const auto reader = openInput(reel_, {}, events.interrupt);
  const MediaInfo info = mediaInfoOf(*reader);
  ConversionPlan plan = shaped(withPicturesOnly(plan_), info.mainVideo.value_or(0));
  setCrf(plan, crf);
  const std::string target = path("probe.mkv");
  const ConversionSettings settings{.input = reel_, .output = target};
  ConversionRun(settings, reader, info, plan, ConversionRun::Part::kAll, quiet(events))
      .write(target);
  requireNoInterrupt(events);
  Probe result;
  result.scores.resize(samples_.size());
  Pictures original({.input = reel_, .deinterlacing = Deinterlacing::kOff}, events.interrupt);
  Pictures copy({.input = target, .deinterlacing = Deinterlacing::kOff}, events.interrupt);
  size_t before = samples_.size();
  for (const LikenessAt& each : likeness(original, copy, {.every = kEvery})) {
    // Joins put pictures on the ticks of those before.
    const auto at =
        std::min(static_cast<size_t>((each.time + picture_ - 1000) / stride_), samples_.size() - 1);
    // The first picture of each is a key picture here, which it hardly is in the film.
    if (std::exchange(before, at) == at) result.scores[at].push_back(each.score);
  }
  std::vector<WeighedScore> all;
  double length = 0;
  for (size_t i = 0; i < samples_.size(); ++i) {
    length += seconds(samples_[i].end - samples_[i].start);
    for (const double score : result.scores[i])
      all.push_back({score, samples_[i].weight / static_cast<double>(result.scores[i].size())});
  }
  const auto bytes = static_cast<double>(std::filesystem::file_size(target));
  result.point = {crf, percentile5(std::move(all)), bytes / std::max(length, 1e-3)};
  std::filesystem::remove(target);
  return result;
}

}  // namespace kestrel
