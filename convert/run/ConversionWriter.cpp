#include "convert/run/ConversionWriter.h"

#include <kestrel/LMMediaSource.h>

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <system_error>
#include <utility>

#include <kestrel/convert/Failure.h>
#include "convert/probe/Input.h"
#include "convert/run/LoudnessPass.h"

extern "C" {
#include <libavutil/pixdesc.h>
}

namespace kestrel {

namespace {

namespace fs = std::filesystem;

using Part = ConversionRun::Part;

constexpr double kMicrosecond = 1e-6;

/// Below, encoders change nothing any more; bits per second.
constexpr int kLeastRate = 1000;

/// Of the work, what it is to listen to the sound before it is encoded: with pictures, and alone.
constexpr double kMeasuring = 0.1;
constexpr double kMeasuringAlone = 0.4;

/// Of the work that is left, what a try is worth that others may follow.
constexpr double kTryShare = 0.9;

/// Bits per second that the pictures have before they are encoded: more makes nothing better.
int bareRate(const ConversionPlan& plan) {
  const AVPixFmtDescriptor* pixels = av_pix_fmt_desc_get(av_get_pix_fmt(plan.pixelFormat.c_str()));
  const double bits = pixels ? av_get_bits_per_pixel(pixels) : 24;
  const double rate = static_cast<double>(plan.format.framerate) / plan.format.frameTime;
  return static_cast<int>(std::min(bits * plan.format.width * plan.format.height * rate,
                                   double{std::numeric_limits<int>::max()}));
}

int64_t sizeOf(const std::string& path) {
  std::error_code failed;
  const auto size = fs::file_size(path, failed);
  return failed ? 0 : static_cast<int64_t>(size);
}

}  // namespace

ConversionWriter::ConversionWriter(const ConversionSettings& settings,
                                   std::shared_ptr<LMMediaSource> source, const MediaInfo& info,
                                   ConversionPlan plan, const Events& events, Part part,
                                   RunDivision division)
    : settings_(settings),
      source_(std::move(source)),
      info_(info),
      plan_(std::move(plan)),
      events_(events),
      part_(part),
      division_(std::move(division)),
      progress_(events_) {}

ConversionWriter::~ConversionWriter() = default;

/// The input, for somebody who reads it alone.
std::shared_ptr<LMMediaSource> ConversionWriter::reader(const Events& events) {
  if (!std::exchange(isSourceUsed_, true)) return source_;
  const auto source = source_->anotherReader();
  openSource(*source, settings_.input, events.interrupt);
  return source;
}

ConversionRun& ConversionWriter::makeRun(Part part, const ConversionPlan& plan,
                                         const Events& events) {
  run_ = std::make_unique<ConversionRun>(settings_, reader(events), info_, plan, part, events,
                                         part == part_ ? division_ : RunDivision{});
  return *run_;
}

/// Measures the sound whose loudness is set, and has it turned up or down. Silence stays.
void ConversionWriter::level() {
  if (!setsLoudness(plan_)) return;
  if (!source_->isSeekable())
    throw Failure::input(
        settings_.input,
        fmt::format("cannot set the loudness of '{}': it can be read only once", settings_.input));
  const bool hasPictures = plan_.pictures() && plan_.pictures()->action == StreamAction::kEncode;
  const double share = hasPictures ? kMeasuring : kMeasuringAlone;
  measured_ = measureLoudness(reader(events_), plan_, seconds(), progress_.next(share));
  left_ = 1 - share;
  for (const auto& [place, loudness] : measured_) {
    SoundEncoding& sound = plan_.streams[place].sound;
    if (loudness)
      sound.volume = std::pow(10, (*sound.loudness - *loudness) / 20);
    else
      sound.loudness.reset();
  }
}

std::vector<LoudnessChange> ConversionWriter::loudness() const {
  std::vector<LoudnessChange> changes = run_->loudness();
  uint32_t track = 0;
  for (size_t place = 0; place < plan_.streams.size(); ++place) {
    const PlannedStream& stream = plan_.streams[place];
    if (stream.kind != StreamInfo::Kind::kAudio || !stream.isKept()) continue;
    const uint32_t number = track++;
    const auto measured = measured_.find(place);
    if (measured == measured_.end()) continue;
    const auto change = std::ranges::find(changes, number, &LoudnessChange::stream);
    if (change != changes.end())
      change->before = measured->second;
    else
      changes.push_back({.stream = number});
  }
  std::ranges::sort(changes, {}, &LoudnessChange::stream);
  return changes;
}

/// The first of two passes.
void ConversionWriter::learn(double share) {
  if (keepsPassLogInFiles(plan_)) {
    log_.emplace();
    if (log_->error())
      throw Failure::output(settings_.output,
                            fmt::format("cannot keep what the encoder learns in its first pass: {}",
                                        log_->error().message));
  }
  ConversionPlan plan = plan_;
  setPass(plan, 1, log_ ? log_->path() : "");
  ConversionRun& run = makeRun(Part::kFirstPass, plan, progress_.next(left_ * share));
  run.write(settings_.output);
  statistics_ = run.statistics();
  length_ = run.length();
}

/// The only pass, or the second.
void ConversionWriter::encode(const std::string& path, double share) {
  ConversionPlan plan = plan_;
  if (plan.passes == 2) setPass(plan, 2, log_ ? log_->path() : "");
  ConversionRun& run = makeRun(part_, plan, progress_.next(left_ * share));
  run.setStatistics(statistics_);
  run.write(path);
  length_ = run.length();
}

void ConversionWriter::write(const std::string& path) {
  level();
  if (events_.isInterrupted()) return;
  const bool isTwice = plan_.passes == 2;
  if (isTwice) {
    learn(0.5);
    if (events_.isInterrupted()) return;  // what half a pass told says nothing of the whole
    const int least = leastRate(statistics_, plan_.rate());
    if (plan_.format.video_bitrate < least)
      throw Failure::settings(
          fmt::format("videoBitrate: {} needs at least {} bits per second for these pictures",
                      plan_.videoEncoder, least),
          "videoBitrate");
  }
  encode(path, isTwice ? 0.5 : 1);
}

std::unique_ptr<OutputFile> ConversionWriter::makeTarget() const {
  return std::make_unique<OutputFile>(settings_.output, settings_.replaces, settings_.input);
}

/// How many bytes the file has without its pictures; 0 where that cannot be told before.
int64_t ConversionWriter::sizeOfRest() {
  if (plan_.kept(StreamInfo::Kind::kAudio).empty()) return 0;
  const auto target = makeTarget();
  makeRun(Part::kRest, plan_, progress_.next(0)).write(target->path());
  return sizeOf(target->path());
}

/// Of the result; 0: unknown.
double ConversionWriter::seconds() const {
  if (length_ > 0) return static_cast<double>(length_) * kMicrosecond;
  const int64_t whole = info_.duration.value_or(0);
  const int64_t end = std::min(plan_.end.value_or(whole), whole);
  return static_cast<double>(std::max<int64_t>(end - plan_.start, 0)) * kMicrosecond;
}

void ConversionWriter::refuseLimit(const std::string& why) const {
  throw Failure::settings("sizeLimit: " + why, "sizeLimit");
}

void ConversionWriter::tell(SizeSearch::Verdict verdict, int64_t limit, int64_t size) const {
  using Verdict = SizeSearch::Verdict;
  if (verdict == Verdict::kFits || !events_.note) return;
  events_.note(fmt::format(
      "'{}' has {} of at most {} bytes: {}", settings_.output, size, limit,
      verdict == Verdict::kBelow
          ? "its pictures need no more for the best quality that " + plan_.videoEncoder + " has"
          : fmt::format("{} came no nearer in {} tries", plan_.videoEncoder,
                        SizeSearch::kMostTries)));
}

std::unique_ptr<OutputFile> ConversionWriter::writeWithin(int64_t limit,
                                                          std::unique_ptr<OutputFile> target) {
  using Verdict = SizeSearch::Verdict;
  level();
  if (events_.isInterrupted()) return target;
  const int64_t rest = sizeOfRest();
  if (events_.isInterrupted()) return target;
  if (rest >= limit)
    refuseLimit(
        fmt::format("what is no picture has {} bytes by itself, and {} are allowed", rest, limit));
  const bool isTwice = plan_.passes == 2;
  if (isTwice) learn(0.5);
  if (events_.isInterrupted()) return target;
  double left = isTwice ? 0.5 : 1;
  SizeSearch search(limit, rest, std::max(leastRate(statistics_, plan_.rate()), kLeastRate),
                    bareRate(plan_));
  search.begin(seconds(), plan_.format.video_bitrate);
  std::unique_ptr<OutputFile> best;
  for (Verdict verdict = Verdict::kAgain; verdict == Verdict::kAgain;) {
    if (events_.isInterrupted()) return target;
    if (!target) target = makeTarget();
    plan_.format.video_bitrate = search.rate();
    encode(target->path(), left * kTryShare);
    left *= 1 - kTryShare;
    if (events_.isInterrupted()) return target;
    const int64_t size = sizeOf(target->path());
    verdict = search.judge(size);
    if (size == search.best()) best = std::move(target);
    target.reset();
    if (verdict == Verdict::kTooBig)
      refuseLimit(fmt::format("{} bytes are too few: the smallest that {} made of it has {}", limit,
                              plan_.videoEncoder, search.smallest()));
    if (verdict != Verdict::kAgain) tell(verdict, limit, *search.best());
  }
  return best;
}

}  // namespace kestrel
