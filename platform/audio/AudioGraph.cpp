#include <kestrel/AudioGraph.h>

#include <algorithm>
#include <atomic>
#include <map>
#include <mutex>
#include <utility>
#include <vector>

#include "platform/audio/OutputStage.h"

namespace kestrel {

namespace {

std::shared_ptr<AudioStage> makeStage(uint32_t type, uint32_t subType) {
  if (type == kAudioUnitType_Output && subType == kAudioUnitSubType_DefaultOutput)
    return std::make_shared<OutputStage>();
  if (type != kAudioUnitType_FormatConverter) return nullptr;
  if (subType == kAudioUnitSubType_Converter) return makeConverterStage();
  if (subType == kAudioUnitSubType_TimePitch) return makeTimePitchStage();
  return nullptr;
}

constexpr int64_t kNanoseconds = 1'000'000'000;

}  // namespace

bool AudioUnit::setParameter(uint32_t /*parameter*/, float /*value*/) { return false; }

std::optional<float> AudioUnit::parameter(uint32_t /*parameter*/) const { return std::nullopt; }

bool AudioUnit::setFormat(AudioScope /*scope*/, const AudioStreamFormat& /*format*/) {
  return false;
}

struct AudioGraph::State {
  struct Node {
    std::shared_ptr<AudioStage> stage;
    int32_t source = 0;  // the node that it takes its input from, 0: none
    InputCallback callback;
  };

  Node* find(int32_t node) {
    const auto found = nodes.find(node);
    return found == nodes.end() ? nullptr : &found->second;
  }

  /// The stages from the output back to the one with the input callback; empty where there is no
  /// such chain.
  std::vector<Node*> chain() {
    std::vector<Node*> outputs;
    for (auto& [number, node] : nodes)
      if (std::dynamic_pointer_cast<OutputStage>(node.stage)) outputs.push_back(&node);
    if (outputs.size() != 1) return {};
    std::vector<Node*> list = outputs;
    while (list.size() <= nodes.size()) {
      if (list.back()->callback) return list;
      Node* source = find(list.back()->source);
      if (!source) return {};
      list.push_back(source);
    }
    return {};  // a ring
  }

  void setDevice(std::shared_ptr<AudioDevice> next) {
    device = std::move(next);
    const std::lock_guard guard(clock);
    shownDevice = device;
  }
  bool openDevice();
  bool prepare(const std::vector<Node*>& list);
  void fill(float* data, int32_t frames);
  double inputPosition() const;

  mutable std::mutex control;  // of everything but what the device's thread uses
  std::map<int32_t, Node> nodes;
  int32_t lastNode = 0;
  bool isOpen = false;
  bool isInitialized = false;
  bool isRunning = false;
  bool isSilent = false;
  std::shared_ptr<AudioDevice> wanted = makeDefaultAudioDevice();
  std::shared_ptr<AudioDevice> fallback = makeNullAudioDevice();
  std::shared_ptr<AudioDevice> device;       // the one that is played through
  std::mutex clock;                          // of `shownDevice`
  std::shared_ptr<AudioDevice> shownDevice;  // `device`, for those who only ask for the time

  // Set while nothing runs, used on the device's thread.
  std::vector<std::shared_ptr<AudioStage>> stages;  // from the output on
  std::shared_ptr<OutputStage> output;
  InputCallback input;
  RenderCallback rendered;
  int64_t inputFrames = 0;
  AudioDevice::Format format;

  std::atomic<bool> isFlushWanted{false};
};

bool AudioGraph::State::openDevice() {
  const auto toFill = [this](float* data, int32_t frames) { fill(data, frames); };
  std::shared_ptr<AudioDevice> next = wanted;
  if (isSilent || !next->open(toFill)) {
    next = fallback;
    if (!next->open(toFill)) return false;
  }
  if (device && device != next) device->close();
  setDevice(next);
  return true;
}

bool AudioGraph::State::prepare(const std::vector<Node*>& list) {
  format = device->format();
  std::vector<std::shared_ptr<AudioStage>> next;
  AudioDevice::Format wantedFormat = format;
  for (const Node* node : list) {
    const auto taken = node->stage->prepare(wantedFormat);
    if (!taken) return false;
    wantedFormat = *taken;
    next.push_back(node->stage);
  }
  for (size_t i = 0; i + 1 < next.size(); ++i) {
    next[i]->setSource([source = next[i + 1].get()](float* data, int32_t frames) {
      source->render(data, frames);
    });
  }
  next.back()->setSource([this](float* data, int32_t frames) {
    input(0, frames, data);
    inputFrames += frames;
  });
  input = list.back()->callback;
  output = std::dynamic_pointer_cast<OutputStage>(next.front());
  stages = std::move(next);
  return true;
}

/// How far the samples that have left the chain reach.
double AudioGraph::State::inputPosition() const {
  double held = 0;
  for (const auto& stage : stages) held = held * stage->inputPerOutput() + stage->heldFrames();
  return static_cast<double>(inputFrames) - held;
}

void AudioGraph::State::fill(float* data, int32_t frames) {
  if (isFlushWanted.exchange(false))
    for (const auto& stage : stages) stage->flush();
  Rendered piece;
  piece.begin = device->now() + device->latency() * kNanoseconds / format.sampleRate;
  piece.end = piece.begin + frames * kNanoseconds / format.sampleRate;
  piece.inputBegin = inputPosition();
  for (int32_t done = 0; done < frames;) {
    const int32_t count = std::min(frames - done, kMostFrames);
    output->render(data + static_cast<ptrdiff_t>(done) * format.channels, count);
    done += count;
  }
  piece.inputEnd = inputPosition();
  if (rendered) rendered(piece);
}

AudioGraph::AudioGraph() : state_(std::make_unique<State>()) {}

AudioGraph::~AudioGraph() {
  stop();
  close();
}

int32_t AudioGraph::addNode(uint32_t type, uint32_t subType) {
  auto stage = makeStage(type, subType);
  if (!stage) return 0;
  const std::lock_guard guard(state_->control);
  state_->nodes[++state_->lastNode] = {.stage = std::move(stage), .callback = nullptr};
  return state_->lastNode;
}

bool AudioGraph::removeNode(int32_t node) {
  const std::lock_guard guard(state_->control);
  if (state_->isRunning || state_->nodes.erase(node) == 0) return false;
  for (auto& [number, other] : state_->nodes)
    if (other.source == node) other.source = 0;
  state_->isInitialized = false;
  return true;
}

bool AudioGraph::connect(int32_t source, int32_t destination, int32_t bus) {
  const std::lock_guard guard(state_->control);
  auto* node = state_->find(destination);
  if (state_->isRunning || !node || !state_->find(source) || bus != 0) return false;
  node->source = source;
  node->callback = nullptr;
  state_->isInitialized = false;
  return true;
}

bool AudioGraph::setInputCallback(int32_t node, InputCallback callback) {
  const std::lock_guard guard(state_->control);
  auto* found = state_->find(node);
  if (state_->isRunning || !found) return false;
  found->callback = std::move(callback);
  found->source = 0;
  state_->isInitialized = false;
  return true;
}

std::shared_ptr<AudioUnit> AudioGraph::unit(int32_t node) const {
  const std::lock_guard guard(state_->control);
  const auto* found = state_->find(node);
  return found && state_->isOpen ? found->stage : nullptr;
}

void AudioGraph::setRenderCallback(RenderCallback callback) {
  const std::lock_guard guard(state_->control);
  state_->rendered = std::move(callback);
}

void AudioGraph::setDevice(std::shared_ptr<AudioDevice> device) {
  const std::lock_guard guard(state_->control);
  state_->wanted = device ? std::move(device) : makeDefaultAudioDevice();
  state_->isInitialized = state_->isInitialized && state_->isRunning;
}

bool AudioGraph::lacksDevice() const {
  const std::lock_guard guard(state_->control);
  return !state_->isSilent && state_->device && state_->device == state_->fallback;
}

void AudioGraph::setIsSilent(bool isSilent) {
  const std::lock_guard guard(state_->control);
  if (state_->isSilent == isSilent) return;
  state_->isSilent = isSilent;
  state_->isInitialized = state_->isInitialized && state_->isRunning;
}

bool AudioGraph::open() {
  const std::lock_guard guard(state_->control);
  state_->isOpen = true;
  return true;
}

void AudioGraph::close() {
  stop();
  const std::lock_guard guard(state_->control);
  if (state_->device) state_->device->close();
  state_->setDevice(nullptr);
  state_->isInitialized = false;
  state_->isOpen = false;
}

bool AudioGraph::initialize() {
  const std::lock_guard guard(state_->control);
  if (!state_->isOpen) return false;
  if (state_->isInitialized) return true;
  const auto chain = state_->chain();
  if (chain.empty() || !state_->openDevice()) return false;
  state_->isInitialized = state_->prepare(chain);
  return state_->isInitialized;
}

void AudioGraph::uninitialize() {
  const std::lock_guard guard(state_->control);
  if (!state_->isRunning) state_->isInitialized = false;
}

bool AudioGraph::start() {
  const std::lock_guard guard(state_->control);
  if (!state_->isInitialized) return false;
  if (!state_->isRunning) state_->device->start();
  state_->isRunning = true;
  return true;
}

bool AudioGraph::stop() {
  const std::lock_guard guard(state_->control);
  if (!state_->isRunning) return false;
  state_->device->stop();
  state_->isRunning = false;
  return true;
}

bool AudioGraph::isRunning() const {
  const std::lock_guard guard(state_->control);
  return state_->isRunning;
}

void AudioGraph::flush() { state_->isFlushWanted = true; }

int64_t AudioGraph::now() const {
  const std::lock_guard guard(state_->clock);
  return state_->shownDevice ? state_->shownDevice->now() : 0;
}

float AudioGraph::takePeak(int32_t channel) {
  const std::lock_guard guard(state_->control);
  return state_->output ? state_->output->takePeak(channel) : 0;
}

}  // namespace kestrel
