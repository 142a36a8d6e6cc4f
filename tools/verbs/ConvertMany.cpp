#include "tools/verbs/ConvertMany.h"

#include <fmt/format.h>
#include <kestrel/convert/Text.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tools/terminal/BatchDisplay.h"
#include "tools/terminal/Outcome.h"
#include "tools/terminal/Output.h"
#include "tools/terminal/Summary.h"
#include "tools/verbs/Facts.h"

using namespace kestrel;
using nlohmann::ordered_json;
using Outcome = BatchResult::Outcome;

namespace {

const char* nameOf(Outcome outcome) {
  switch (outcome) {
    case Outcome::kDone:
      return "done";
    case Outcome::kDoneInPart:
      return "in part";
    case Outcome::kSkipped:
      return "skipped";
    case Outcome::kFailed:
      return "failed";
    default:
      return "interrupted";
  }
}

bool hasResult(const BatchResult& result) {
  return result.outcome == Outcome::kDone || result.outcome == Outcome::kDoneInPart;
}

std::vector<std::string> rowOf(const BatchResult& result) {
  std::vector<std::string> row{nameOf(result.outcome), printable(result.job.input), "", "", "", ""};
  if (result.outcome == Outcome::kSkipped || hasResult(result))
    row[2] = printable(result.job.output);
  if (!hasResult(result)) return row;
  const Effort& effort = result.effort;
  row[3] = fmt::format("{:.1f} s", effort.elapsed);
  if (effort.bytesWritten) row[4] = formatByteCount(*effort.bytesWritten);
  row[5] = shareText(effort);
  return row;
}

std::string tableOf(const std::vector<BatchResult>& results) {
  std::vector<std::vector<std::string>> rows;
  for (const BatchResult& result : results) rows.push_back(rowOf(result));
  constexpr size_t kNumbers = 3;
  return tableText(rows, kNumbers);
}

ordered_json documentOf(const BatchResult& result) {
  ordered_json json{{"input", result.job.input},          {"output", result.job.output},
                    {"outcome", nameOf(result.outcome)},  {"error", nullptr},
                    {"findings", result.report.findings}, {"left_out", result.report.leftOut}};
  if (result.failure) json["error"] = sentenceOf(*result.failure);
  if (!hasResult(result)) return json;
  if (const auto& quality = result.report.quality)
    json["quality"] = {{"target", quality->target},     {"percentile_5", quality->percentile5},
                       {"mean", quality->mean},         {"least", quality->least},
                       {"measured", quality->measured}, {"crf", quality->crf},
                       {"encodes", quality->encodes},   {"copied", quality->isCopied},
                       {"remark", quality->remark}};
  const Effort& effort = result.effort;
  json["elapsed"] = effort.elapsed;
  json["duration"] = effort.length;
  json["frames"] = effort.pictures;
  json["source_size"] = orNull(effort.bytesRead);
  json["size"] = orNull(effort.bytesWritten);
  return json;
}

ExitStatus statusFor(const BatchResult& result) {
  switch (result.outcome) {
    case Outcome::kInterrupted:
      return kInterrupted;
    case Outcome::kFailed:
      return statusOf(*result.failure);
    case Outcome::kDoneInPart:
      return kDoneInPart;
    default:
      return kDone;
  }
}

/// The worst status: an interrupt, a failure, wrong usage, a part.
int worstOf(const std::vector<BatchResult>& results) {
  constexpr ExitStatus kFromWorst[] = {kInterrupted, kFailed, kWrongUsage, kDoneInPart};
  for (const ExitStatus status : kFromWorst)
    for (const BatchResult& result : results)
      if (statusFor(result) == status) return status;
  return kDone;
}

}  // namespace

int convertMany(const Batch& batch, const ManySettings& settings) {
  std::vector<BatchResult> results;
  {
    BatchDisplay display(settings.progress, batch.jobs(), !settings.isQuiet);
    results = batch.run(display.events());
  }
  if (settings.asJson) {
    ordered_json document;
    auto& list = document["files"] = ordered_json::array();
    for (const BatchResult& result : results) list.push_back(documentOf(result));
    writeDocument(document);
  } else if (!settings.isQuiet) {
    writeStandardOutput(tableOf(results));
  }
  return worstOf(results);
}
