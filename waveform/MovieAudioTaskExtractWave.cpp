#include <kestrel/Bundle.h>
#include <kestrel/MovieAudioTaskExtractWave.h>
#include <kestrel/Pasteboard.h>
#include <kestrel/Task.h>

#include <fmt/format.h>

#include <bit>
#include <charconv>
#include <filesystem>
#include <random>
#include <system_error>
#include <utility>

#include "platform/process/HelperPath.h"
#include "support/Guarded.h"

namespace kestrel {

namespace {

constexpr char kName[] = "SamplePointsTask";  // of the program, its pasteboard and the type there
constexpr char kSample[] = "sample";

std::string resultPath() {
  return fmt::format("{}/MovieAudioExtract-{}-{:x}", temporaryDirectory(), kName,
                     std::random_device{}() & 0x7FFFFFFFU);
}

/// A result file, which goes when it has been read.
class ResultFile {
 public:
  ResultFile() : path_(resultPath()) {}
  ~ResultFile() {
    std::error_code ignored;
    std::filesystem::remove(path_, ignored);
  }
  ResultFile(const ResultFile&) = delete;
  ResultFile& operator=(const ResultFile&) = delete;

  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

PropertyList floats(const std::vector<WaveformPoint>& points, float WaveformPoint::*value) {
  PropertyList::Data data;
  data.reserve(points.size() * sizeof(float));
  for (const WaveformPoint& point : points) {
    const auto bits = std::bit_cast<uint32_t>(point.*value);
    for (int shift = 0; shift < 32; shift += 8) data.push_back(static_cast<uint8_t>(bits >> shift));
  }
  return data;
}

}  // namespace

PropertyList samplePointsOf(Waveform waveform) {
  PropertyList::Array sample;
  for (std::vector<WaveformPoint>& points : waveform.channels) {
    PropertyList::Dictionary channel;
    channel["min"] = floats(points, &WaveformPoint::min);
    channel["max"] = floats(points, &WaveformPoint::max);
    channel["rms"] = floats(points, &WaveformPoint::rms);
    sample.emplace_back(std::move(channel));
    points = {};
  }
  PropertyList::Dictionary result;
  result["sampleRate"] = waveform.sampleRate;
  result["channels"] = static_cast<int64_t>(waveform.channels.size());
  result["samplesPerPoint"] = waveform.samplesPerPoint;
  result["pointsPerSecond"] = waveform.pointsPerSecond();
  result[kSample] = std::move(sample);
  return result;
}

struct MovieAudioTaskExtractWave::State {
  Guarded<std::shared_ptr<Task>> task;
};

MovieAudioTaskExtractWave::MovieAudioTaskExtractWave() : state_(std::make_unique<State>()) {}

MovieAudioTaskExtractWave::~MovieAudioTaskExtractWave() = default;

std::optional<PropertyList> MovieAudioTaskExtractWave::samplePointsFromPath(
    const std::string& path, const std::optional<std::vector<uint32_t>>& medias) {
  setProgress(0);
  cancel();
  const ResultFile result;
  std::vector<std::string> arguments{path, result.path()};
  if (medias) arguments.push_back(fmt::format("{}", fmt::join(*medias, "-")));
  const auto extractor = std::make_shared<Task>();
  extractor->setLaunchPath(helperPath(kName));
  extractor->setArguments(std::move(arguments));
  setTask(extractor);
  try {
    extractor->launch();
  } catch (const TaskError&) {
    setTask(nullptr);
    throw;
  }
  extractor->waitUntilExit();
  setTask(nullptr);

  const auto list = PropertyList::fromFile(result.path());
  const PropertyList* sample = list ? list->find(kSample) : nullptr;
  return sample ? std::optional(*sample) : std::nullopt;
}

void MovieAudioTaskExtractWave::cancel() {
  if (const auto running = task()) running->terminate();
}

double MovieAudioTaskExtractWave::progress() const {
  const auto text = Pasteboard::pasteboardWithName(kName).stringForType(kName);
  double value = 0;
  if (text) std::from_chars(text->data(), text->data() + text->size(), value);
  return value;
}

void MovieAudioTaskExtractWave::setProgress(double progress) {
  Pasteboard::pasteboardWithName(kName).replaceContents(fmt::format("{:f}", progress), kName);
}

bool MovieAudioTaskExtractWave::isFinished() const { return task() == nullptr; }

std::shared_ptr<Task> MovieAudioTaskExtractWave::task() const { return state_->task.get(); }

void MovieAudioTaskExtractWave::setTask(std::shared_ptr<Task> task) {
  state_->task.set(std::move(task));
}

}  // namespace kestrel
