#include "tools/terminal/ProgressDisplay.h"

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>

#include <kestrel/convert/Text.h>
#include "tools/terminal/Interrupt.h"
#include "tools/terminal/Outcome.h"
#include "tools/terminal/Terminal.h"

using namespace kestrel;

namespace {

constexpr std::chrono::milliseconds kShortestPause{100};
constexpr int kUsualColumns = 80;
constexpr int kWidestBar = 40;
constexpr int kNarrowestBar = 10;

nlohmann::ordered_json rounded(const std::optional<double>& number, double scale) {
  if (!number) return nullptr;
  return std::round(*number * scale) / scale;
}

void print(const std::string& text) {
  std::fwrite(text.data(), 1, text.size(), stderr);
  std::fflush(stderr);
}

}  // namespace

ProgressDisplay::Style shownStyle(ProgressDisplay::Style wanted) {
  const bool isHidden =
      wanted == ProgressDisplay::Style::kBar && (!isatty(STDERR_FILENO) || isDumbTerminal());
  return isHidden ? ProgressDisplay::Style::kNone : wanted;
}

int terminalColumns() {
  winsize size{};
  const bool isKnown = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
  return isKnown ? size.ws_col : kUsualColumns;
}

double ProgressState::fps() const {
  return elapsed > 0 ? static_cast<double>(frames) / elapsed : 0;
}

double ProgressState::speed() const { return elapsed > 0 ? time / elapsed : 0; }

std::optional<double> ProgressState::percent() const {
  if (isDone) return 100;
  if (!duration) return std::nullopt;
  return std::clamp(100 * time / *duration, 0.0, 100.0);
}

std::optional<double> ProgressState::secondsLeft() const {
  if (isDone) return 0;
  if (!duration || speed() <= 0) return std::nullopt;
  return std::max(*duration - time, 0.0) / speed();
}

std::string progressJson(const ProgressState& state, const std::string& input) {
  nlohmann::ordered_json line;
  if (!input.empty()) line["input"] = input;
  line["time"] = rounded(state.time, 1e6);
  line["duration"] = rounded(state.duration, 1e6);
  line["percent"] = rounded(state.percent(), 100);
  line["frames"] = state.frames;
  line["fps"] = rounded(state.fps(), 100);
  line["speed"] = rounded(state.speed(), 100);
  line["eta"] = rounded(state.secondsLeft(), 10);
  if (state.isDone) line["done"] = true;
  return line.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

std::string progressBar(const ProgressState& state, int columns) {
  const auto percent = state.percent();
  const auto left = state.secondsLeft();
  std::string text =
      percent ? fmt::format("{:3.0f} %", std::floor(*percent)) : formatTime(std::floor(state.time));
  std::string facts = fmt::format("{:4.0f} fps {:5.2f}x", state.fps(), state.speed());
  if (left) facts += "  " + formatTime(std::ceil(*left)) + " left";

  const int room = columns - 1 - static_cast<int>(text.size() + facts.size()) - 6;
  if (percent && room >= kNarrowestBar) {
    const int width = std::min(room, kWidestBar);
    const auto filled = static_cast<size_t>(*percent / 100 * width);
    text += "  [" + std::string(filled, '#') + std::string(width - filled, '-') + "]";
  }
  text += "  " + facts;
  text.resize(std::min(text.size(), static_cast<size_t>(std::max(columns - 1, 0))));
  return text;
}

ProgressDisplay::ProgressDisplay(Style style) : style_(shownStyle(style)) {}

ProgressDisplay::~ProgressDisplay() {
  const std::lock_guard guard(lock_);
  clearBar();
}

void ProgressDisplay::update(const Progress& progress) {
  if (style_ == Style::kNone) return;
  const auto now = Clock::now();
  const std::lock_guard guard(lock_);
  state_.time = std::max(progress.time, 0.0);
  state_.duration = progress.duration;
  state_.frames = progress.pictures;
  if (now < nextShow_) return;
  nextShow_ = now + kShortestPause;
  show();
}

Events ProgressDisplay::events() {
  return {.interrupt = interrupted,
          .progress = [this](const Progress& progress) { update(progress); }};
}

void ProgressDisplay::finish() {
  const std::lock_guard guard(lock_);
  if (state_.isDone) return;
  state_.isDone = true;
  clearBar();
  if (style_ == Style::kJson) show();
}

void ProgressDisplay::show() {
  state_.elapsed = std::chrono::duration<double>(Clock::now() - begin_).count();
  if (style_ == Style::kJson) {
    print(progressJson(state_) + "\n");
  } else {
    print(fmt::format("\r{}\033[K", progressBar(state_, terminalColumns())));
    isBarShown_ = true;
  }
}

void ProgressDisplay::clearBar() {
  if (!isBarShown_) return;
  print("\r\033[K");
  isBarShown_ = false;
}

int finish(ProgressDisplay& progress, const Report& report) {
  if (report.outcome != Report::Outcome::kInterrupted) progress.finish();
  return finish(report);
}
