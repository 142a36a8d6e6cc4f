#include <kestrel/LMOutputAudioGraph.h>

#include <atomic>
#include <utility>

#include "support/Guarded.h"

namespace kestrel {

namespace {

constexpr uint64_t kBytesPerFrame = 2 * sizeof(float);

uint64_t bytesOf(int32_t frames) {
  return frames > 0 ? static_cast<uint64_t>(frames) * kBytesPerFrame : 0;
}

}  // namespace

struct LMOutputAudioGraph::State {
  std::atomic<bool> isStart{false};
  std::atomic<float> rate{1};
  std::atomic<float> volume{1};
  std::atomic<LMOutputAudioGraphDelegate*> delegate{nullptr};
  Guarded<std::shared_ptr<LMFIFODataBuffer>> dataBuffer{std::make_shared<LMFIFODataBuffer>()};
};

LMOutputAudioGraph::LMOutputAudioGraph() : state_(std::make_unique<State>()) {}

LMOutputAudioGraph::~LMOutputAudioGraph() { stop(); }

void LMOutputAudioGraph::start() { state_->isStart = true; }

void LMOutputAudioGraph::stop() { state_->isStart = false; }

bool LMOutputAudioGraph::isStart() const { return state_->isStart; }

float LMOutputAudioGraph::rate() const { return state_->rate; }

void LMOutputAudioGraph::setRate(float rate) { state_->rate = rate; }

float LMOutputAudioGraph::volume() const { return state_->volume; }

void LMOutputAudioGraph::setVolume(float volume) { state_->volume = volume; }

LMOutputAudioGraphDelegate* LMOutputAudioGraph::delegate() const { return state_->delegate; }

void LMOutputAudioGraph::setDelegate(LMOutputAudioGraphDelegate* delegate) {
  state_->delegate = delegate;
}

std::shared_ptr<LMFIFODataBuffer> LMOutputAudioGraph::dataBuffer() const {
  return state_->dataBuffer.get();
}

void LMOutputAudioGraph::setDataBuffer(std::shared_ptr<LMFIFODataBuffer> buffer) {
  state_->dataBuffer.set(std::move(buffer));
}

bool LMOutputAudioGraph::readSample(void* data, int32_t frame) {
  decodeMoreAudioDataToAudioOutput();
  const auto buffer = dataBuffer();
  return buffer && buffer->readBytes(data, bytesOf(frame)) == bytesOf(frame);
}

bool LMOutputAudioGraph::writeSample(const void* data, int32_t frame) {
  if (const auto buffer = dataBuffer()) buffer->appendBytes(data, bytesOf(frame));
  return true;
}

bool LMOutputAudioGraph::streamReadSample(int32_t /*stream*/, void* data, int32_t numberFrames) {
  return readSample(data, numberFrames);
}

bool LMOutputAudioGraph::streamWriteSample(int32_t /*stream*/, const void* data,
                                           int32_t numberFrames) {
  return writeSample(data, numberFrames);
}

int32_t LMOutputAudioGraph::bufferFrames() const {
  const auto buffer = dataBuffer();
  return buffer ? static_cast<int32_t>(static_cast<uint64_t>(buffer->length()) / kBytesPerFrame)
                : 0;
}

void LMOutputAudioGraph::clearBuffer() {
  if (const auto buffer = dataBuffer()) buffer->clear();
}

void LMOutputAudioGraph::decodeMoreAudioDataToAudioOutput() {
  if (auto* target = delegate()) target->decodeMoreAudioDataToAudioOutput();
}

}  // namespace kestrel
