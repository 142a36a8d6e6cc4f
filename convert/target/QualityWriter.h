#pragma once

#include <kestrel/convert/ConversionPlan.h>
#include <kestrel/convert/Events.h>
#include <kestrel/convert/MediaInfo.h>
#include <kestrel/convert/OutputFile.h>
#include <kestrel/convert/Report.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "convert/run/ConversionWriter.h"
#include "convert/run/Passes.h"
#include "convert/target/SampleReel.h"
#include "convert/target/SampleReport.h"
#include "convert/target/SceneZones.h"

namespace kestrel {

/// Writes what a plan says with pictures of the likeness that it asks for: tries numbers of the
/// encoder's on samples, encodes with the one that fits, measures the result, and encodes again
/// what misses.
///
/// All that is passed in lasts longer. Where an interrupt ends the work, calls return or throw the
/// `Failure` of it, and nothing that is written counts.
class QualityWriter {
 public:
  QualityWriter(const ConversionSettings& settings, std::shared_ptr<LMMediaSource> source,
                const MediaInfo& info, ConversionPlan plan, const Events& events);
  ~QualityWriter();
  QualityWriter(const QualityWriter&) = delete;
  QualityWriter& operator=(const QualityWriter&) = delete;

  /// Writes to `target` or to another file beside it, which is answered. Throws `Failure`.
  std::unique_ptr<OutputFile> write(std::unique_ptr<OutputFile> target);

  /// Puts the samples' report in its place, where one is wanted.
  void commitReport();

  /// What came of it.
  const QualityReached& reached() const { return reached_; }

  /// The writer of the file that was answered.
  const ConversionWriter& last() const { return *best_; }

 private:
  void findScenes();
  void search();
  void spread(const std::vector<SampleReel::Probe>& probes);
  ConversionPlan planWith(double crf) const;
  std::unique_ptr<OutputFile> encode(std::unique_ptr<OutputFile> target);
  bool isPlain() const;
  std::vector<LikenessAt> scoresOf(const std::string& path, const Events& events);
  SampleReport::Encode measure(const std::string& path, const Events& events);
  std::unique_ptr<OutputFile> copyUnlessSmaller(std::unique_ptr<OutputFile> encoded);
  std::optional<ConversionPlan> planOfCopy();
  std::unique_ptr<OutputFile> makeTarget() const;
  std::shared_ptr<LMMediaSource> reader() const;
  int64_t pictures() const;

  const ConversionSettings& settings_;
  const std::shared_ptr<LMMediaSource> source_;
  const MediaInfo& info_;
  const ConversionPlan plan_;
  const TargetQuality target_;
  const Events& events_;
  SharedProgress progress_;
  std::optional<OutputFile> reportFile_;
  std::optional<OutputFile> curveFile_;
  std::vector<Scene> scenes_;
  std::optional<SampleReel> reel_;
  std::vector<int64_t> times_;      // of the result's pictures, where they keep their own
  std::vector<double> sceneShift_;  // from the file's number, by scene
  double crf_ = 0;
  SampleReport report_;
  QualityReached reached_;
  std::unique_ptr<ConversionWriter> best_;
};

}  // namespace kestrel
