#pragma once

#include <kestrel/convert/ConversionPlan.h>
#include <kestrel/convert/Events.h>
#include <kestrel/convert/MediaInfo.h>
#include <kestrel/convert/OutputFile.h>

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "convert/run/ConversionRun.h"
#include "convert/run/Passes.h"
#include "convert/run/SizeSearch.h"
#include "platform/files/ScratchFolder.h"

namespace kestrel {

/// Writes what a plan says in as many runs as that takes: one, two where the encoder goes through
/// the pictures twice, and more where the file must not be larger than a limit.
///
/// `part` and `division`: what of it the last run carries out, and how.
///
/// What is made on the way goes away with this object. All that is passed in lasts longer. Where an
/// interrupt ends the work, the calls return and nothing that is written counts.
class ConversionWriter {
 public:
  ConversionWriter(const ConversionSettings& settings, std::shared_ptr<LMMediaSource> source,
                   const MediaInfo& info, ConversionPlan plan, const Events& events,
                   ConversionRun::Part part = ConversionRun::Part::kAll, RunDivision division = {});
  ~ConversionWriter();
  ConversionWriter(const ConversionWriter&) = delete;
  ConversionWriter& operator=(const ConversionWriter&) = delete;

  /// Writes to a file. Throws `Failure`.
  void write(const std::string& path);

  /// Writes a file of so many bytes at most, to `target` or to another one beside it, which is
  /// answered. Throws `Failure` where that is not possible.
  std::unique_ptr<OutputFile> writeWithin(int64_t limit, std::unique_ptr<OutputFile> target);

  /// What became of sound whose loudness is set, in the order of the result's tracks.
  std::vector<LoudnessChange> loudness() const;

  /// The run that wrote all.
  const ConversionRun& last() const { return *run_; }

 private:
  ConversionRun& makeRun(ConversionRun::Part part, const ConversionPlan& plan,
                         const Events& events);
  std::shared_ptr<LMMediaSource> reader(const Events& events);
  void level();
  void learn(double share);
  void encode(const std::string& path, double share);
  int64_t sizeOfRest();
  std::unique_ptr<OutputFile> makeTarget() const;
  double seconds() const;
  [[noreturn]] void refuseLimit(const std::string& why) const;
  void tell(SizeSearch::Verdict verdict, int64_t limit, int64_t size) const;

  const ConversionSettings& settings_;
  const std::shared_ptr<LMMediaSource> source_;
  const MediaInfo& info_;
  ConversionPlan plan_;
  const Events& events_;
  const ConversionRun::Part part_;
  const RunDivision division_;
  SharedProgress progress_;
  double left_ = 1;                   // of the work, for what comes after measuring
  std::optional<ScratchFolder> log_;  // of the encoder, between its passes
  std::string statistics_;
  std::map<size_t, std::optional<double>> measured_;  // by the place of the planned stream
  int64_t length_ = 0;  // of the result, once that is known; microseconds
  bool isSourceUsed_ = false;
  std::unique_ptr<ConversionRun> run_;
};

}  // namespace kestrel
