#include "convert/cut/CutRules.h"

#include <fmt/format.h>

#include <string>

#include "convert/plan/SettingsRules.h"
#include "convert/settings/Require.h"

namespace kestrel {

namespace {

void requireSpans(const std::string& setting, const std::vector<CutSpan>& spans) {
  int64_t before = 0;
  bool isOver = false;
  for (const CutSpan& span : spans) {
    if (span.start < 0 || span.start > kLatestTime) refuse(setting, "a span starts nowhere");
    if (span.end && *span.end <= span.start) refuse(setting, "a span ends before it starts");
    if (isOver || span.start < before)
      refuse(setting, "spans have to rise, and none may reach into the next");
    isOver = !span.end;
    before = span.end.value_or(0);
  }
}

}  // namespace

void require(const CutSettings& settings) {
  using Accuracy = CutSettings::Accuracy;
  if (settings.keep.empty() && settings.drop.empty())
    refuse("keep", "it is not said what stays, nor what goes");
  if (!settings.keep.empty() && !settings.drop.empty()) refuseBeside("keep", "drop");
  requireSpans("keep", settings.keep);
  requireSpans("drop", settings.drop);
  requireOneOf("accuracy", settings.accuracy, {Accuracy::kExact, Accuracy::kKey});
}

std::vector<CutSpan> keptSpans(const CutSettings& settings) {
  if (!settings.keep.empty()) return settings.keep;
  std::vector<CutSpan> kept;
  int64_t start = 0;
  for (const CutSpan& span : settings.drop) {
    if (span.start > start) kept.push_back({start, span.start});
    if (!span.end) return kept;
    start = *span.end;
  }
  kept.push_back({start, {}});
  return kept;
}

}  // namespace kestrel
