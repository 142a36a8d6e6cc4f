// Measures how a movie plays: what it costs, how soon it is heard, and whether an hour stays right.
// `bench/run play` runs it; the figures come as one JSON document.

#include <kestrel/kestrel.h>
#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <utility>
#include <vector>

using namespace kestrel;

namespace {

using Clock = std::chrono::steady_clock;
using Json = nlohmann::ordered_json;

constexpr int64_t kSecond = 1000000;
constexpr int64_t kRate = 44100;

double secondsSince(Clock::time_point begin) {
  return std::chrono::duration<double>(Clock::now() - begin).count();
}

double cpuSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_usec);
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

/// Megabytes that are in memory now.
double residentMegabytes() {
  std::ifstream file("/proc/self/statm");
  int64_t pages = 0;
  file >> pages >> pages;
  return static_cast<double>(pages) * 4096 / 1e6;
}

double cpuSecondsOfThread() {
  timespec time{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

/// Keeps about the pace of sound, whatever its rate, and times each call.
class TimedDevice : public AudioDevice {
 public:
  explicit TimedDevice(int32_t sampleRate) : sampleRate_(sampleRate) {}
  bool open(Fill fill) override {
    return device_->open([this, fill = std::move(fill)](float* data, int32_t frames) {
      const auto begin = Clock::now();
      const double cpu = cpuSecondsOfThread();
      fill(data, frames);
      worstCpu = std::max(worstCpu.load(), cpuSecondsOfThread() - cpu);
      worst = std::max(worst.load(), secondsSince(begin));
      period = static_cast<double>(frames) / sampleRate_;
      if (std::any_of(data, data + 2 * frames, [](float s) { return s != 0; })) ++heard;
    });
  }
  void close() override { device_->close(); }
  bool isOpen() const override { return device_->isOpen(); }
  Format format() const override { return {.sampleRate = sampleRate_, .channels = 2}; }
  void start() override { device_->start(); }
  void stop() override { device_->stop(); }
  int64_t now() const override { return device_->now(); }

  std::atomic<int> heard{0};  // calls that were answered with sound
  std::atomic<double> worst{0};
  std::atomic<double> worstCpu{0};
  std::atomic<double> period{0};

 private:
  const int32_t sampleRate_;
  std::shared_ptr<AudioDevice> device_ = makeNullAudioDevice();
};

void waitForSound(const TimedDevice& device) {
  const int before = device.heard;
  while (device.heard == before) std::this_thread::sleep_for(std::chrono::microseconds(200));
}

Json playing(const std::string& path, double rate, double seconds) {
  const auto begin = Clock::now();
  LMFFMovie movie;
  movie.openMedias(LMMediaSource::mediaWithPath(path)->createMedias());
  const auto device = std::make_shared<TimedDevice>(kRate);
  const auto graph = movie.audioOutputGraph();
  graph->graph().setDevice(device);
  movie.setRate(static_cast<float>(rate));
  movie.play();
  waitForSound(*device);
  const double first = secondsSince(begin);

  const auto measured = Clock::now();
  const double cpu = cpuSeconds();
  std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
  const double share = (cpuSeconds() - cpu) / secondsSince(measured);

  std::vector<double> seeks;
  for (int i = 0; i < 20; ++i) {
    const auto sought = Clock::now();
    movie.seek((i * 7 % 20) * kSecond);
    movie.flushOperation();
    waitForSound(*device);
    seeks.push_back(secondsSince(sought));
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  return {{"rate", rate},
          {"cpu", share},
          {"first", first},
          {"seek", *std::ranges::max_element(seeks)},
          {"underruns", graph->underruns()}};
}

/// How long the device's calls take at most while rates change and places are sought, beside `busy`
/// threads that do nothing else but work.
Json calls(const std::string& path, int32_t deviceRate, int busy, double seconds) {
  std::vector<std::jthread> threads;
  for (int i = 0; i < busy; ++i)
    threads.emplace_back([](const std::stop_token& stop) {
      while (!stop.stop_requested()) {
      }
    });
  LMFFMovie movie;
  movie.openMedias(LMMediaSource::mediaWithPath(path)->createMedias());
  const auto device = std::make_shared<TimedDevice>(deviceRate);
  movie.audioOutputGraph()->graph().setDevice(device);
  movie.play();
  const auto begin = Clock::now();
  for (int i = 0; secondsSince(begin) < seconds; ++i) {
    constexpr float kRates[] = {1, 2, 1, 0.5, 1.3F, 4, 3, 1};
    movie.setRate(kRates[i % 8]);
    if (i % 5 == 4) movie.seek((i * 7 % 20) * kSecond);
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
  }
  return {{"device", deviceRate},
          {"busy", busy},
          {"call", device->worst.load()},
          {"cpu", device->worstCpu.load()},
          {"period", device->period.load()},
          {"underruns", movie.audioOutputGraph()->underruns()}};
}

/// An hour and some of computed sound.
class LongSound : public LMWavSource {
 public:
  std::shared_ptr<LMMediaSource> copy() const override { return std::make_shared<LongSound>(); }
  int64_t datasize() const override { return int64_t{2} * 3700 * kRate * 8; }
  int32_t readData(uint8_t* data, int64_t offset, int32_t size) override {
    for (int32_t i = 0; i < size; ++i)
      data[i] = static_cast<uint8_t>((offset + i) % 4 == 3 ? 0x3d : (offset + i) % 4);
    return size;
  }
};

/// An hour of playing as fast as it goes: how far the clock is off then, and what memory it took.
Json hour(double rate) {
  LMFFMovie movie;
  movie.openMedias(std::make_shared<LongSound>()->createMedias());
  const auto device = std::make_shared<PulledAudioDevice>();
  const auto graph = movie.audioOutputGraph();
  graph->graph().setDevice(device);
  movie.setRate(static_cast<float>(rate));
  movie.play();
  const auto pull = [&](int64_t frames) {
    for (; frames > 0; frames -= 441) {
      while (graph->bufferFrames() < 8192 * std::max(rate, 1.0)) {
        graph->decodeMoreAudioDataToAudioOutput();
        std::this_thread::yield();
      }
      device->pull(441);
    }
  };
  pull(900 * kRate);  // what is kept for good is there by then
  const double memory = residentMegabytes();
  const int64_t begin = movie.currentTime();
  pull(3600 * kRate);
  const double played = lm_ff_time_to_double(movie.currentTime() - begin);
  return {{"rate", rate},
          {"drift", played / rate - 3600},
          {"memory", memory},
          {"growth", residentMegabytes() - memory},
          {"underruns", graph->underruns()}};
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fputs("usage: kestrel_play_bench FILE SECONDS\n", stderr);
    return 2;
  }
  const double seconds = std::stod(argv[2]);
  Json figures;
  for (const double rate : {1.0, 2.0})
    figures["playing"].push_back(playing(argv[1], rate, seconds));
  for (const int32_t deviceRate : {44100, 48000})
    for (const int busy : {0, 2})
      figures["calls"].push_back(calls(argv[1], deviceRate, busy, seconds));
  for (const double rate : {1.0, 1.5}) figures["hour"].push_back(hour(rate));
  std::puts(figures.dump(2).c_str());
  return 0;
}
