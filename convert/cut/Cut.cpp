#include <kestrel/convert/Cut.h>

#include <kestrel/LMMediaSource.h>
#include <kestrel/convert/Failure.h>
#include <kestrel/convert/OutputFile.h>

#include <fmt/format.h>

#include <utility>

#include "convert/cut/CutJob.h"
#include "convert/cut/CutPlan.h"
#include "convert/cut/CutProof.h"
#include "convert/cut/CutRules.h"
#include "convert/cut/CutWriter.h"
#include "convert/files/SameFile.h"
#include "convert/probe/Codecs.h"
#include "convert/probe/Input.h"
#include "convert/probe/InputOutline.h"
#include "convert/probe/Streams.h"
#include "support/copy/FineEncoder.h"

namespace kestrel {

namespace {

/// A time after the input's start as the first tick that is no earlier, times being told in
/// microseconds.
int64_t tickAt(const CutJob& job, int64_t time) {
  constexpr AVRational kHalves{1, 2 * AV_TIME_BASE};
  return av_rescale_q_rnd(2 * (time + job.start) - 1, kHalves, job.index.timebase, AV_ROUND_UP);
}

std::vector<TickSpan> ticksOf(const CutJob& job, const std::vector<CutSpan>& spans) {
  std::vector<TickSpan> ticks;
  for (const CutSpan& span : spans)
    ticks.push_back({tickAt(job, span.start), span.end ? tickAt(job, *span.end) : INT64_MAX});
  return ticks;
}

CutJob openJob(const CutSettings& settings, const Events& events) {
  CutJob job{.settings = settings, .events = events};
  const auto source = openInput(settings.input, {}, events.interrupt, 1, settings.protocols);
  if (!source->isSeekable())
    throw Failure::input(
        settings.input, fmt::format("'{}' can be read only once, and a cut reads it several times: "
                                    "store it in a file first",
                                    settings.input));
  job.info = mediaInfoOf(*source);
  job.outline = outlineOf(*source->formatContext());
  job.start = source->start_time();
  const auto video = mainVideo(*source->formatContext());
  if (!video)
    throw Failure::input(settings.input, fmt::format("'{}' has no pictures", settings.input));
  job.video = *video;
  job.index = indexPictures(*source, *video, events);
  if (!job.index.problem.empty() || job.index.pictures.empty())
    throw Failure::input(
        settings.input,
        fmt::format("the pictures of '{}' can't be cut: {}", settings.input,
                    job.index.pictures.empty() ? "there are none" : job.index.problem));
  return job;
}

/// Tries ways to make the result until one can be proven.
class Cutter {
 public:
  Cutter(const CutJob& job, const std::string& path) : job_(job), path_(path) {}

  CutReport run() {
    spans_ = ticksOf(job_, keptSpans(job_.settings));
    const AVStream& stream = *job_.outline->streams[job_.video];
    std::string why;
    auto form = makeStretchForm(stream, job_.index, why);
    CutWay way{.startsOpen = form && form->startsOpen(),
               .keepsGroups = job_.settings.accuracy == CutSettings::Accuracy::kKey};
    if (tryCopying(way, form.get(), why)) return std::move(report_);
    if (way.keepsGroups || !whyNeverEncoded(stream).empty())
      throw Failure::input(
          job_.settings.input,
          fmt::format("'{}' cannot be cut there: {}{}", job_.settings.input, why,
                      way.keepsGroups ? "" : "; whole groups of them can be kept"));
    if (job_.events.note) job_.events.note("encoding all pictures: " + why);
    report_.report.encoded.push_back("all pictures: " + why);
    const bool setsApart = outputFormatFor(job_.settings.output).flags & AVFMT_GLOBALHEADER;
    const auto whole = makeWholeForm(stream, setsApart);
    way = {.encodesAll = true, .why = why};
    std::string problem;
    if (tryCopying(way, whole.get(), problem)) return std::move(report_);
    throw Failure::output(job_.settings.output,
                          fmt::format("'{}' is not as it should be, and is thrown away: {}",
                                      job_.settings.output, problem));
  }

 private:
  /// Whether the result came out as it should; `why` not.
  bool tryCopying(const CutWay& way, StretchForm* form, std::string& why) {
    const PicturePlan plan = planPictures(job_.index, spans_, way);
    if (plan.pictures.empty())
      throw Failure::settings("no picture of the input lies in what is to stay", "keep");
    if (plan.encoded() > 0 && !form) return false;
    for (int steps = 0; steps <= FineCoding::kMostSteps; ++steps) {
      const CutResult result = writeCut(job_, plan, form, steps, path_);
      why = result.problem;
      if (!why.empty()) return false;
      const CutProof proof = proveCut(job_, plan, result.shown, path_);
      why = proof.problem;
      if (why.empty()) {
        tell(result, proof);
        return true;
      }
      if (!proof.isFaint) return false;
      if (job_.events.note) job_.events.note("encoding the borders once more, finer: " + why);
    }
    return false;
  }

  void tell(const CutResult& result, const CutProof& proof) {
    report_.stretches = result.stretches;
    for (size_t i = 0; i < proof.likeness.size(); ++i)
      report_.stretches[i].ssim = proof.likeness[i];
    report_.seams = proof.seams;
    report_.equalPictures = proof.equalPictures;
    report_.alikePictures = proof.alikePictures;
    report_.report.leftOut = result.leftOut;
    for (const std::string& sentence : result.encoded) report_.report.encoded.push_back(sentence);
  }

  const CutJob& job_;
  const std::string& path_;
  std::vector<TickSpan> spans_;
  CutReport report_;
};

CutReport cutFile(const CutSettings& settings, const Events& events) {
  require(settings);
  const CutJob job = openJob(settings, events);
  OutputFile target(settings.output, settings.replaces, settings.input);
  CutReport report = Cutter(job, target.path()).run();
  target.commit();
  return report;
}

}  // namespace

std::shared_ptr<LMMediaSource> CutJob::reader() const {
  return openInput(settings.input, {}, events.interrupt, 1, settings.protocols);
}

CutReport cut(const CutSettings& settings, const Events& events) {
  try {
    return cutFile(settings, events);
  } catch (const Failure& failure) {
    if (failure.kind() != Failure::Kind::kInterrupted) throw;
    return {.report = Report::interrupted()};
  }
}

}  // namespace kestrel
