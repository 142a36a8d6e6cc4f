#include "convert/target/QualityWriter.h"

#include <kestrel/LMMediaSource.h>
#include <kestrel/convert/Failure.h>
#include <kestrel/convert/Pictures.h>

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <system_error>
#include <utility>

#include "convert/compare/ScoreStatistics.h"
#include "convert/plan/ConversionPlanner.h"
#include "convert/probe/EncoderTable.h"
#include "convert/probe/Input.h"
#include "convert/probe/PictureTimes.h"
#include "convert/scenes/ScenesWithin.h"
#include "convert/target/Likeness.h"

namespace kestrel {

namespace {

// Of the work, what its parts are to whoever watches.
constexpr double kSceneShare = 0.1;
constexpr double kProbeShare = 0.05;  // of each
constexpr double kFirstShare = 0.9;   // of what is left, that the first encoding is
constexpr double kEncodeShare = 0.85;

/// Pictures of a sample: encoders look ahead, and give pictures that others lean on more.
constexpr int kSampleLength = 24;

// Of what a search may cost, how much goes into a sample's pictures, each of which is encoded and
// scored several times, and into those of the result that are scored; and within what limits.
constexpr double kSampleCost = 0.2;
constexpr double kResultCost = 0.6;
constexpr double kFewestSampled = 96;
constexpr double kMostSampled = 720;
constexpr double kFewestMeasured = 100;
constexpr double kMostMeasured = 2000;

/// A result so near to the target is as good as it; one further away than the second missed it.
constexpr double kNear = 0.9;
constexpr double kMissed = 1.5;
constexpr int kMostEncodes = 4;

/// How far a scene's number may be from the file's: what a few pictures say is no more certain.
constexpr double kMostShift = 5;

int64_t sizeOf(const std::string& path) {
  std::error_code failed;
  const auto size = std::filesystem::file_size(path, failed);
  return failed ? 0 : static_cast<int64_t>(size);
}

QualitySearch::Scale scaleOf(const EncoderRow& row, double target) {
  return {.best = std::max(row.best, 1.0),  // at 0 some lose nothing, which is another profile
          .worst = row.worst,
          .guess = row.usual + (EncoderRow::kUsualScore - target) / row.scorePerStep,
          .scorePerStep = row.scorePerStep,
          .hasFractions = row.hasFractions};
}

/// The same scale with what samples cost a step, where they tell.
QualitySearch::Scale learned(QualitySearch::Scale scale, const std::vector<QualityPoint>& probes) {
  if (probes.empty() || probes.back().crf - probes.front().crf < 1) return scale;
  const double perStep =
      (probes.front().score - probes.back().score) / (probes.back().crf - probes.front().crf);
  scale.scorePerStep = std::clamp(perStep, scale.scorePerStep / 2, scale.scorePerStep * 2);
  return scale;
}

std::string curveOf(const std::string& report) {
  return std::filesystem::path(report).replace_extension(".svg").string();
}

}  // namespace

QualityWriter::QualityWriter(const ConversionSettings& settings,
                             std::shared_ptr<LMMediaSource> source, const MediaInfo& info,
                             ConversionPlan plan, const Events& events)
    : settings_(settings),
      source_(std::move(source)),
      info_(info),
      plan_(std::move(plan)),
      target_(*plan_.targetQuality),
      events_(events),
      progress_(events_) {
  if (target_.report.empty()) return;
  reportFile_.emplace(target_.report, settings.replaces, settings.input);
  curveFile_.emplace(curveOf(target_.report), settings.replaces, settings.input);
}

QualityWriter::~QualityWriter() = default;

std::shared_ptr<LMMediaSource> QualityWriter::reader() const {
  auto source = source_->anotherReader();
  openSource(*source, settings_.input, events_.interrupt);
  return source;
}

std::unique_ptr<OutputFile> QualityWriter::makeTarget() const {
  return std::make_unique<OutputFile>(settings_.output, settings_.replaces, settings_.input);
}

/// How many pictures are converted, about.
int64_t QualityWriter::pictures() const {
  const auto length = static_cast<double>(scenes_.back().end - scenes_.front().start) / 1e6;
  return std::max(1L, std::lround(length * plan_.rate().num / plan_.rate().den));
}

void QualityWriter::findScenes() {
  scenes_ = scenesWithin({.input = settings_.input,
                          .source = settings_.source,
                          .title = settings_.title,
                          .angle = settings_.angle,
                          .protocols = settings_.protocols},
                         plan_.start, plan_.end, progress_.next(kSceneShare))
                .scenes;
  report_.scenes = scenes_.size();
}

void QualityWriter::search() {
  const EncoderRow& row = *encoderRow(plan_.videoEncoder);
  const bool isPerScene = target_.per == TargetQuality::Per::kScene && row.hasZones;
  if (target_.per == TargetQuality::Per::kScene && !row.hasZones && events_.note)
    events_.note(
        fmt::format("{} takes one quality for a file, not one for each scene", plan_.videoEncoder));
  const double sampled = std::clamp(kSampleCost * target_.maxCost * static_cast<double>(pictures()),
                                    kFewestSampled, kMostSampled);
  const int64_t length = int64_t{1'000'000} * kSampleLength * plan_.rate().den / plan_.rate().num;
  const auto samples =
      placeSamples(scenes_, static_cast<size_t>(std::lround(sampled / kSampleLength)), length);
  reel_.emplace(settings_, *source_, info_, plan_, samples, progress_.next(kProbeShare));
  report_.samples = samples;
  QualitySearch search(target_.score, scaleOf(row, target_.score));
  std::vector<SampleReel::Probe> probes;
  while (const auto crf = search.next(isPerScene ? 2 : 1)) {
    probes.push_back(reel_->probe(*crf, progress_.next(kProbeShare)));
    search.add(probes.back().point);
    ++reached_.probes;
  }
  report_.probes = search.points();
  crf_ = search.answer();
  if (isPerScene) spread(probes);
}

/// Gives each scene that has samples the number that brings it to the target by itself.
void QualityWriter::spread(const std::vector<SampleReel::Probe>& probes) {
  sceneShift_.assign(scenes_.size(), 0);
  for (size_t scene = 0; scene < scenes_.size(); ++scene) {
    QualitySearch own(target_.score, scaleOf(*encoderRow(plan_.videoEncoder), target_.score));
    for (const SampleReel::Probe& probe : probes) {
      std::vector<WeighedScore> scores;
      for (size_t i = 0; i < reel_->samples().size(); ++i)
        if (reel_->samples()[i].scene == scene)
          for (const double score : probe.scores[i]) scores.push_back({score});
      if (!scores.empty()) own.add({probe.point.crf, percentile5(std::move(scores))});
    }
    if (!own.points().empty())
      sceneShift_[scene] = std::clamp(own.answer() - crf_, -kMostShift, kMostShift);
  }
  if (!plan_.keepsTimes) return;
  times_ = pictureTimes(*reader());
  const int64_t begin = info_.startTime.value_or(0) + plan_.start;
  for (int64_t& time : times_) time -= begin;
  std::erase_if(times_, [](int64_t time) { return time < 0; });
}

ConversionPlan QualityWriter::planWith(double crf) const {
  ConversionPlan plan = plan_;
  setCrf(plan, crf);
  const EncoderRow& row = *encoderRow(plan_.videoEncoder);
  std::vector<SceneCrf> scenes;
  for (size_t i = 0; i < sceneShift_.size(); ++i)
    scenes.push_back({scenes_[i].start - plan_.start, scenes_[i].end - plan_.start,
                      std::clamp(crf + sceneShift_[i], std::max(row.best, 1.0), row.worst)});
  if (!scenes.empty()) setZones(plan, crf, scenes, times_);
  return plan;
}

/// Whether pictures go to the encoder as they were decoded.
bool QualityWriter::isPlain() const {
  const VideoInfo& video = info_.streams[plan_.pictures()->sources.front()].video;
  LookSettings look = plan_.look;
  look.scaler = {};
  look.hdr.reset();
  return look == LookSettings{} && !plan_.picture && plan_.orientation == Orientation{} &&
         plan_.treatment.deinterlacing == Deinterlacing::kOff &&
         plan_.treatment.denoising == Denoising::kOff && plan_.format.width == video.width &&
         plan_.format.height == video.height && plan_.pixelFormat == video.pixelFormat;
}

/// Scores of the whole film, or of the samples where it was shaped on its way to the encoder: these
/// alone are kept.
std::vector<LikenessAt> QualityWriter::scoresOf(const std::string& path, const Events& events) {
  if (!isPlain()) return reel_->compare(path, events);
  Pictures original({.input = settings_.input,
                     .source = settings_.source,
                     .title = settings_.title,
                     .angle = settings_.angle,
                     .protocols = settings_.protocols,
                     .deinterlacing = Deinterlacing::kOff},
                    events_.interrupt);
  Pictures copy({.input = path, .deinterlacing = Deinterlacing::kOff}, events_.interrupt);
  const auto all = static_cast<double>(pictures());
  const double wanted =
      std::clamp(kResultCost * target_.maxCost * all, kFewestMeasured, kMostMeasured);
  // Pictures that lean on others come in even turns.
  const int every = static_cast<int>(std::max(all / wanted, 1.0)) | 1;
  const double length = static_cast<double>(scenes_.back().end - plan_.start) / 1e6;
  return likeness(
      original, copy, {.start = plan_.start, .end = plan_.end, .every = every}, [&](int64_t time) {
        if (events.progress)
          events.progress(
              {.time = static_cast<double>(time - plan_.start) / 1e6, .duration = length});
      });
}

SampleReport::Encode QualityWriter::measure(const std::string& path, const Events& events) {
  const auto scores = scoresOf(path, events);
  if (scores.empty())
    throw Failure::input(settings_.input,
                         fmt::format("'{}' has no pictures to be measured", settings_.input));
  Comparison comparison;
  for (const LikenessAt& each : scores) comparison.scores.push_back({each.time, 0, each.score});
  summarise(comparison);
  SampleReport::Encode encode;
  encode.percentile5 = comparison.percentile5;
  encode.mean = comparison.mean;
  encode.least = comparison.least;
  encode.measured = static_cast<int64_t>(scores.size());
  encode.bytes = sizeOf(path);
  return encode;
}

std::unique_ptr<OutputFile> QualityWriter::encode(std::unique_ptr<OutputFile> target) {
  const EncoderRow& row = *encoderRow(plan_.videoEncoder);
  QualitySearch results(target_.score, learned(scaleOf(row, target_.score), report_.probes));
  std::unique_ptr<OutputFile> best;
  double left = 1 - kSceneShare - (QualitySearch::kMostTries + 1) * kProbeShare;
  double crf = crf_;
  for (int i = 0; i < kMostEncodes; ++i) {
    if (!target) target = makeTarget();
    const double share = left * kFirstShare;
    left -= share;
    const Events& own = progress_.next(share * kEncodeShare);
    auto writer =
        std::make_unique<ConversionWriter>(settings_, reader(), info_, planWith(crf), own);
    writer->write(target->path());
    if (events_.isInterrupted()) throw Failure::interrupted();
    auto result = measure(target->path(), progress_.next(share * (1 - kEncodeShare)));
    result.crf = crf;
    report_.encodes.push_back(result);
    ++reached_.encodes;
    results.add({crf, result.percentile5});
    const double miss = std::abs(result.percentile5 - target_.score);
    if (!best || miss < std::abs(reached_.percentile5 - target_.score)) {
      best = std::move(target);
      best_ = std::move(writer);
      reached_.percentile5 = result.percentile5;
      reached_.mean = result.mean;
      reached_.least = result.least;
      reached_.measured = result.measured;
      reached_.crf = crf;
    }
    target.reset();
    if (miss <= kNear) break;
    const double next = results.answer();
    const bool isTried = std::ranges::any_of(results.points(), [&](const QualityPoint& point) {
      return std::abs(point.crf - next) < (row.hasFractions ? 0.1 : 0.5);
    });
    if (isTried) break;
    crf = next;
  }
  if (std::abs(reached_.percentile5 - target_.score) > kMissed)
    reached_.remark = fmt::format("{} came no nearer to {:g} in {} encodings", plan_.videoEncoder,
                                  target_.score, reached_.encodes);
  return best;
}

/// How pictures would be copied; none, and a remark, where that cannot be.
std::optional<ConversionPlan> QualityWriter::planOfCopy() {
  ConversionSettings settings = settings_;
  settings.video = StreamAction::kCopy;
  settings.videoCodec.clear();
  settings.targetQuality.reset();
  settings.encoderPreset.clear();
  settings.keyframes.reset();
  settings.videoOptions.clear();
  settings.suitsAnyInput = false;
  try {
    if (plan_.treatment.deinterlacing != Deinterlacing::kOff)
      throw Failure::settings("they are interlaced");
    const auto source = reader();
    return planConversion(settings, *source, {.info = info_});
  } catch (const Failure& failure) {
    if (failure.kind() == Failure::Kind::kInterrupted) throw;
    reached_.remark = fmt::format("pictures cannot be copied: {}", failure.what());
    return std::nullopt;
  }
}

std::unique_ptr<OutputFile> QualityWriter::copyUnlessSmaller(std::unique_ptr<OutputFile> encoded) {
  if (!target_.unlessSmaller) return encoded;
  const auto plan = planOfCopy();
  if (!plan) return encoded;
  auto target = makeTarget();
  auto writer =
      std::make_unique<ConversionWriter>(settings_, reader(), info_, *plan, progress_.next(0));
  writer->write(target->path());
  if (events_.isInterrupted()) throw Failure::interrupted();
  const auto copied = static_cast<double>(sizeOf(target->path()));
  const auto smaller = static_cast<double>(sizeOf(encoded->path()));
  report_.copyBytes = static_cast<int64_t>(copied);
  if (smaller <= (1 - *target_.unlessSmaller) * copied) return encoded;
  best_ = std::move(writer);
  reached_.isCopied = true;
  reached_.remark = fmt::format("encoded it has {:.0f} bytes, copied {:.0f}", smaller, copied);
  return target;
}

std::unique_ptr<OutputFile> QualityWriter::write(std::unique_ptr<OutputFile> target) {
  reached_.target = target_.score;
  findScenes();
  search();
  target = copyUnlessSmaller(encode(std::move(target)));
  if (events_.progress) {
    const double length = static_cast<double>(scenes_.back().end - plan_.start) / 1e6;
    events_.progress({.time = length, .duration = length, .pictures = pictures()});
  }
  return target;
}

void QualityWriter::commitReport() {
  if (!reportFile_) return;
  report_.settings = target_;
  report_.encoder = plan_.videoEncoder;
  report_.reached = reached_;
  report_.length = static_cast<double>(scenes_.back().end - scenes_.front().start) / 1e6;
  reportFile_->write(documentOf(report_));
  curveFile_->write(curveOf(report_));
  reportFile_->commit();
  curveFile_->commit();
}

}  // namespace kestrel
