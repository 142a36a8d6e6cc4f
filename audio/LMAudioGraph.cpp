#include <kestrel/LMAudioGraph.h>
#include <kestrel/Log.h>

#include <atomic>
#include <cstring>

namespace kestrel {

int32_t PushCurrentInputBufferIntoAudioUnit(LMAudioGraph* delegate, int32_t bus,
                                            int32_t numberFrames, void* data, uint64_t byteSize) {
  const bool isWhole = delegate && delegate->streamReadSample(bus, data, numberFrames);
  if (!isWhole && byteSize > 0) std::memset(data, 0, byteSize);
  return 0;
}

LMAudioGraph::LMAudioGraph() = default;

LMAudioGraph::~LMAudioGraph() {
  stop();
  graph_.close();
}

void LMAudioGraph::build() {
  createNode();
  graph_.open();
  configNode();
}

void LMAudioGraph::start() {
  if (!graph_.initialize()) log("AUGraphInitialize (graph)");
  if (!graph_.start()) log("AUGraphStart(graph)");
  static std::atomic<bool> isTold{false};
  if (graph_.lacksDevice() && !isTold.exchange(true))
    log("there is no audio device: playing without being heard");
}

void LMAudioGraph::stop() {
  graph_.stop();
  graph_.uninitialize();
}

bool LMAudioGraph::isStart() const { return graph_.isRunning(); }

int32_t LMAudioGraph::createAUNode(uint32_t type, uint32_t subType) {
  return graph_.addNode(type, subType);
}

void LMAudioGraph::removeAUNode(int32_t node) { graph_.removeNode(node); }

void LMAudioGraph::connectNode(int32_t node, int32_t to, int32_t bus) {
  graph_.connect(node, to, bus);
}

void LMAudioGraph::setConverterNode(int32_t node, uint32_t mode, int32_t rate) {
  AudioStreamFormat format;
  format.sampleRate = rate;
  if (const auto unit = audioUnitForNode(node))
    unit->setFormat(static_cast<AudioScope>(mode), format);
}

void LMAudioGraph::setInputCallbackForNode(int32_t node) { setInputCallbackForNode(node, this); }

void LMAudioGraph::setInputCallbackForNode(int32_t node, LMAudioGraph* delegate) {
  const auto unit = audioUnitForNode(node);
  graph_.setInputCallback(node, [delegate, unit](int32_t bus, int32_t frames, float* data) {
    const auto format = unit ? unit->format(AudioScope::kInput) : std::nullopt;
    const uint64_t frameBytes = format.value_or(AudioStreamFormat{}).bytesPerFrame;
    PushCurrentInputBufferIntoAudioUnit(delegate, bus, frames, data,
                                        static_cast<uint64_t>(frames) * frameBytes);
  });
}

std::shared_ptr<AudioUnit> LMAudioGraph::audioUnitForNode(int32_t node) const {
  return graph_.unit(node);
}

bool LMAudioGraph::streamReadSample(int32_t /*stream*/, void* /*data*/, int32_t /*numberFrames*/) {
  return false;
}

bool LMAudioGraph::streamWriteSample(int32_t /*stream*/, const void* /*data*/,
                                     int32_t /*numberFrames*/) {
  return false;
}

}  // namespace kestrel
