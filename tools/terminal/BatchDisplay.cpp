#include "tools/terminal/BatchDisplay.h"

#include <fmt/format.h>
#include <kestrel/convert/Text.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <utility>

#include "tools/terminal/Interrupt.h"
#include "tools/terminal/Outcome.h"
#include "tools/terminal/Output.h"

using namespace kestrel;

namespace {

constexpr std::chrono::milliseconds kShortestPause{100};
constexpr size_t kLongestName = 30;  // bytes

void print(const std::string& text) {
  std::fwrite(text.data(), 1, text.size(), stderr);
  std::fflush(stderr);
}

/// A file's name that leaves room for more; cut between two letters.
std::string shortName(const std::string& path) {
  std::string name = printable(std::filesystem::path(path).filename().string());
  if (name.size() <= kLongestName) return name;
  size_t end = kLongestName;
  while (end > 0 && (static_cast<unsigned char>(name[end]) & 0xC0) == 0x80) --end;
  return name.substr(0, end) + "…";
}

}  // namespace

BatchDisplay::BatchDisplay(ProgressDisplay::Style style, std::vector<BatchJob> jobs, bool tells)
    : style_(shownStyle(style)), jobs_(std::move(jobs)), tells_(tells) {}

BatchDisplay::~BatchDisplay() { clear(); }

BatchEvents BatchDisplay::events() {
  return {.interrupt = interrupted,
          .started = [this](size_t job) { running_.emplace(job, Running()); },
          .progress = [this](size_t job, const Progress& progress) { update(job, progress); },
          .note =
              [this](size_t, const std::string& sentence) {
                if (tells_) sayOf(sentence);
              },
          .ended = [this](size_t job, const BatchResult& result) { end(job, result); }};
}

void BatchDisplay::update(size_t job, const Progress& progress) {
  if (style_ == ProgressDisplay::Style::kNone) return;
  Running& running = running_[job];
  running.state.time = std::max(progress.time, 0.0);
  running.state.duration = progress.duration;
  running.state.frames = progress.pictures;
  const auto now = Clock::now();
  running.state.elapsed = std::chrono::duration<double>(now - running.begin).count();
  if (now < nextShow_) return;
  nextShow_ = now + kShortestPause;
  show();
}

void BatchDisplay::end(size_t job, const BatchResult& result) {
  clear();
  if (result.failure) say(sentenceOf(*result.failure));
  for (const std::string& finding : result.report.findings) say(finding);
  if (tells_)
    for (const std::string& loss : result.report.leftOut) say(loss);
  if (style_ == ProgressDisplay::Style::kJson) {
    ProgressState state = running_[job].state;
    state.isDone = true;
    print(progressJson(state, jobs_[job].input) + "\n");
  }
  running_.erase(job);
}

void BatchDisplay::sayOf(const std::string& sentence) {
  clear();
  say(sentence);
}

void BatchDisplay::show() {
  if (style_ == ProgressDisplay::Style::kJson) {
    for (const auto& [job, running] : running_)
      print(progressJson(running.state, jobs_[job].input) + "\n");
    return;
  }
  clear();
  const int columns = terminalColumns();
  std::string text;
  for (const auto& [job, running] : running_) text += lineOf(job, running.state, columns) + "\n";
  shownLines_ = static_cast<int>(running_.size());
  print(text);
}

std::string BatchDisplay::lineOf(size_t job, const ProgressState& state, int columns) const {
  const std::string head =
      fmt::format("{}/{} {} ", job + 1, jobs_.size(), shortName(jobs_[job].input));
  return head + progressBar(state, columns - static_cast<int>(head.size()));
}

void BatchDisplay::clear() {
  for (; shownLines_ > 0; --shownLines_) print("\033[A\r\033[K");
}
