#include <kestrel/convert/Conversion.h>

#include <kestrel/LMDVDTitleSource.h>
#include <kestrel/LMFFImage.h>
#include <kestrel/LMFFMovie.h>
#include <kestrel/LMMediaSource.h>

#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <utility>

#include <kestrel/convert/Disc.h>
#include <kestrel/convert/Failure.h>
#include <kestrel/convert/MediaInfo.h>
#include <kestrel/convert/OutputFile.h>
#include "convert/conversion/DividedConversion.h"
#include "convert/files/PlaylistTarget.h"
#include "convert/pictures/AutoCrop.h"
#include "convert/plan/ConversionPlanner.h"
#include "convert/plan/PixelFormats.h"
#include "convert/plan/PlanRules.h"
#include "convert/plan/SettingsRules.h"
#include "convert/probe/Colors.h"
#include "convert/probe/Input.h"
#include "convert/probe/InputEnd.h"
#include "convert/probe/Light.h"
#include "convert/probe/MeasuredScanning.h"
#include "convert/probe/PictureTimes.h"
#include "convert/run/ConversionRun.h"
#include "convert/run/ConversionWriter.h"
#include "convert/run/LeftOut.h"
#include "convert/run/Passes.h"
#include "convert/scenes/ScenesWithin.h"
#include "convert/target/QualityWriter.h"
#include "platform/files/Sync.h"
#include "support/Pipes.h"

extern "C" {
#include <libavformat/avformat.h>
}

namespace kestrel {

namespace {

/// Of the work, what it is to look for scenes before pictures are encoded.
constexpr double kSceneShare = 0.15;

/// Says what of a disc was lost where it matters: another title may have been meant, for the disc's
/// main one, or whatever had the number, may be among it.
void judgeDisc(Report& report, const ConversionSettings& settings, const LMMediaSource& source) {
  const auto* title = dynamic_cast<const DVDTitleSource*>(&source);
  if (!title) return;
  const std::string damage = damageOf(*title->dvd());
  const bool matters = settings.title == kMainTitle || !title->dvd()->hasTitleTable();
  if (damage.empty() || !matters) return;
  report.find(fmt::format("'{}' cannot be read whole: {}", settings.input, damage));
}

}  // namespace

class Conversion::Work {
 public:
  explicit Work(ConversionSettings settings) : settings_(std::move(settings)) {
    require(settings_);
    const bool wantsMain = settings_.title == kMainTitle;
    if (settings_.suitsAnyInput && wantsMain && !isDisc(settings_.input)) settings_.title.reset();
  }

  ConversionPlan& plan(const Events& events) {
    if (source_) return plan_;
    const auto source = openInput(settings_, events.interrupt);
    info_ = mediaInfoOf(*source);
    if (settings_.video.value_or(StreamAction::kEncode) == StreamAction::kEncode) {
      if (source->isSeekable())
        learnColors(info_, openedAgain(events.interrupt));
      else
        learnColorsOnTheWay(info_, *source);
    }
    plan_ = planConversion(settings_, *source, measures(*source, events.interrupt));
    planLight(*source, events.interrupt);
    source_ = source;
    return plan_;
  }

  /// What was measured of the input for the plan; set before, it is not measured again.
  MeasuredInput& measured() { return measured_; }

  const MediaInfo& info() const { return info_; }

  std::shared_ptr<LMMediaSource> reader(const Interrupt& interrupt) const {
    return openedAgain(interrupt);
  }

  /// Carries out one part of a planned conversion. Answers how the input ended for it.
  InputEnd writePart(ConversionRun::Part part, RunDivision division, const Events& events) {
    ConversionWriter writer(settings_, source_, info_, plan_, events, part, std::move(division));
    writer.write(settings_.output);
    if (events.isInterrupted()) throw Failure::interrupted();
    InputEnd end = writer.last().inputEnd();
    end.reached = writer.last().length();
    return end;
  }

  Report run(const Events& events, RunDivision division = {}) {
    events_ = events;
    division_ = std::move(division);
    try {
      return convert();
    } catch (const Failure& failure) {
      if (failure.kind() != Failure::Kind::kInterrupted) throw;
      return Report::interrupted();
    }
  }

 private:
  Report convert() {
    if (hasRun_) throw Failure::settings("a conversion runs once: make another one", "run");
    plan(events_);
    requirePlan(plan_, *source_, settings_.output);
    source_->setInterrupt(events_.interrupt);
    if (plan_.segment) return convertToSegments();
    const bool isPiped = isPipe(settings_.output);
    auto target = isPiped ? nullptr
                          : std::make_unique<OutputFile>(settings_.output, settings_.replaces,
                                                         settings_.input);
    hasRun_ = true;
    SharedProgress stages(events_);
    const Events& events = takeScenes(stages);
    if (plan_.targetQuality) return convertToQuality(std::move(target), events);
    if (division_.made) return assemble(std::move(target), events);
    ConversionWriter writer(settings_, source_, info_, plan_, events);
    if (plan_.sizeLimit)
      target = writer.writeWithin(*plan_.sizeLimit, std::move(target));
    else
      writer.write(isPiped ? settings_.output : target->path());
    if (events_.isInterrupted()) return Report::interrupted();
    if (target) target->commit();
    return reportOf(writer);
  }

  /// Writes the whole of parts that have been made. It is on the disk before it has its name: the
  /// parts may go then.
  Report assemble(std::unique_ptr<OutputFile> target, const Events& events) {
    ConversionRun run(settings_, source_, info_, plan_, ConversionRun::Part::kAll, events,
                      division_);
    if (division_.isOpen) division_.isOpen(target->path());
    run.write(target->path());
    if (events_.isInterrupted()) return Report::interrupted();
    if (const kestrel::Error error = syncFile(target->path()))
      throw Failure::output(settings_.output,
                            fmt::format("cannot write '{}': {}", settings_.output, error.message));
    if (division_.isWhole) division_.isWhole(target->path());
    target->commit();
    return report(run);
  }

  Report convertToQuality(std::unique_ptr<OutputFile> target, const Events& events) {
    QualityWriter writer(settings_, source_, info_, plan_, events);
    target = writer.write(std::move(target));
    if (events_.isInterrupted()) return Report::interrupted();
    writer.commitReport();
    target->commit();
    Report report = reportOf(writer.last());
    report.quality = writer.reached();
    return report;
  }

  /// Has the scenes of what is converted stand for the input's chapters, where that is wanted.
  /// Answers the events for what comes after it.
  const Events& takeScenes(SharedProgress& stages) {
    if (plan_.chapterSource != ChapterSource::kScenes) return events_;
    const Scenes found = scenesWithin({.input = settings_.input,
                                       .source = settings_.source,
                                       .title = settings_.title,
                                       .angle = settings_.angle,
                                       .protocols = settings_.protocols},
                                      plan_.start, plan_.end, stages.next(kSceneShare));
    const int64_t begin = info_.startTime.value_or(0);
    info_.chapters.clear();
    for (const Scene& scene : found.scenes) {
      const bool isFirst = info_.chapters.empty();
      const std::string title = fmt::format("Scene {}", info_.chapters.size() + 1);
      info_.chapters.push_back(
          {begin + (isFirst ? plan_.start : scene.start), begin + scene.end, {{"title", title}}});
    }
    return stages.next(1 - kSceneShare);
  }

  Report convertToSegments() {
    PlaylistTarget target(settings_.output, settings_.replaces, settings_.input);
    hasRun_ = true;
    SharedProgress stages(events_);
    ConversionWriter writer(settings_, source_, info_, plan_, takeScenes(stages));
    writer.write(target.folder());
    if (events_.isInterrupted()) return Report::interrupted();
    target.commit(masterPlaylist(writer.last().renditions(), segmentFolderOf(settings_.output)));
    return reportOf(writer);
  }

  Report reportOf(const ConversionWriter& writer) const {
    Report report = this->report(writer.last());
    report.loudness = writer.loudness();
    return report;
  }

  /// What pictures from all over the input tell; another reader looks at them. A pipe has one.
  Measures measures(const LMMediaSource& source, const Interrupt& interrupt) {
    if (!source.isSeekable()) return {.info = info_};
    if (settings_.look.autoCrop && !measured_.picture) {
      LMFFMovie movie;
      movie.openMedias(openedAgain(interrupt)->createMedias());
      measured_.picture = withoutBars(movie);
    }
    Measures measures{.info = info_, .picture = measured_.picture};
    measures.scanning = [this, interrupt] {
      if (!measured_.scanning)
        measured_.scanning = measuredScanning([&] { return openedAgain(interrupt); });
      return *measured_.scanning;
    };
    measures.times = [this, interrupt] { return pictureTimes(*openedAgain(interrupt)); };
    return measures;
  }

  /// The light of HDR pictures: of what their container does not tell, their first one may.
  void planLight(const LMMediaSource& source, const Interrupt& interrupt) {
    PlannedStream* const pictures = plan_.pictures();
    if (!pictures || pictures->action != StreamAction::kEncode) return;
    const uint32_t index = pictures->sources.front();
    std::shared_ptr<LMFFImage> first;
    if (isHdr(info_.streams[index].video.color) && source.isSeekable())
      first = firstPicture(openedAgain(interrupt));
    const AVFrame* const frame = first ? first->getFrame() : nullptr;
    if (keepsLight(plan_) && !plan_.hdr && frame)
      if (const auto light = lightOf(*frame); light && isPossible(*light)) plan_.hdr = light;
    for (const auto& name : changingLightOf(*source.formatContext()->streams[index], frame))
      pictures->losses.push_back(
          fmt::format("their {}, which {} does not write", name, plan_.videoEncoder));
  }

  /// Another reader of the input.
  std::shared_ptr<LMMediaSource> openedAgain(const Interrupt& interrupt) const {
    return openInput(settings_, interrupt);
  }

  /// Whether the result is all that the input promised, and what is missing.
  Report report(const ConversionRun& run) const {
    const ConversionPlan& plan = run.plan();
    Report report;
    report.leftOut = leftOutBy(plan, info_, settings_.input, *source_->formatContext());
    judgeDisc(report, settings_, *source_);
    const IndexSet streams = streamsOf(plan);
    const AVFormatContext& input = *source_->formatContext();
    // Behind the end of the streams that were read, nothing is missed.
    std::optional<int64_t> wanted = plan.end;
    if (wanted) wanted = std::min(*wanted, promisedLength(input, streams).time);
    judgeInput(report, settings_.input, {*source_, input, streams, wanted}, run.inputEnd());
    judgePackets(report, shownName(settings_.input), run.refusedPackets());
    tellOfEncoded(report, events_, run.picturesEncodedToHide(), settings_.input);
    return report;
  }

  ConversionSettings settings_;
  std::shared_ptr<LMMediaSource> source_;
  MediaInfo info_;  // of the source
  ConversionPlan plan_;
  bool hasRun_ = false;
  Events events_;
  MeasuredInput measured_;
  RunDivision division_;
};

Conversion::Conversion(ConversionSettings settings)
    : work_(std::make_unique<Work>(std::move(settings))) {}

Conversion::~Conversion() = default;

ConversionPlan& Conversion::plan(const Events& events) { return work_->plan(events); }

Report Conversion::run(const Events& events) { return work_->run(events); }

DividedConversion::DividedConversion(ConversionSettings settings, const MeasuredInput& measured)
    : conversion_(std::move(settings)) {
  conversion_.work_->measured() = measured;
}

const ConversionPlan& DividedConversion::plan(const Events& events) {
  return conversion_.plan(events);
}

const MediaInfo& DividedConversion::info() const { return conversion_.work_->info(); }

const MeasuredInput& DividedConversion::measured() const { return conversion_.work_->measured(); }

std::shared_ptr<LMMediaSource> DividedConversion::reader(const Interrupt& interrupt) const {
  return conversion_.work_->reader(interrupt);
}

InputEnd DividedConversion::writePart(ConversionRun::Part part, RunDivision division,
                                      const Events& events) {
  return conversion_.work_->writePart(part, std::move(division), events);
}

Report DividedConversion::assemble(RunDivision division, const Events& events) {
  return conversion_.work_->run(events, std::move(division));
}

}  // namespace kestrel
