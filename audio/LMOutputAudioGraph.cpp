#include <kestrel/LMOutputAudioGraph.h>

#include <atomic>
#include <utility>

#include "audio/PlayedPosition.h"
#include "support/Guarded.h"

namespace kestrel {

namespace {

constexpr uint64_t kBytesPerFrame = 2 * sizeof(float);
constexpr int32_t kSampleRate = 44100;

uint64_t bytesOf(int32_t frames) {
  return frames > 0 ? static_cast<uint64_t>(frames) * kBytesPerFrame : 0;
}

}  // namespace

struct LMOutputAudioGraph::State {
  int32_t outputConverterNode = 0;
  int32_t outputNode = 0;
  int32_t speedNode = 0;
  std::atomic<LMOutputAudioGraphDelegate*> delegate{nullptr};
  Guarded<std::shared_ptr<LMFIFODataBuffer>> dataBuffer{std::make_shared<LMFIFODataBuffer>()};
  PlayedPosition position;
  std::atomic<int64_t> taken{0};      // frames that ever left the queue
  std::atomic<bool> hasSound{false};  // something was written since the queue was made or cleared
  std::atomic<int64_t> underruns{0};
};

LMOutputAudioGraph::LMOutputAudioGraph() : state_(std::make_unique<State>()) { build(); }

LMOutputAudioGraph::~LMOutputAudioGraph() { stop(); }

void LMOutputAudioGraph::createNode() {
  state_->outputConverterNode =
      createAUNode(kAudioUnitType_FormatConverter, kAudioUnitSubType_Converter);
  state_->outputNode = createAUNode(kAudioUnitType_Output, kAudioUnitSubType_DefaultOutput);
  state_->speedNode = createAUNode(kAudioUnitType_FormatConverter, kAudioUnitSubType_TimePitch);
  connectNode(state_->outputConverterNode, state_->speedNode);
  connectNode(state_->speedNode, state_->outputNode);
}

void LMOutputAudioGraph::configNode() {
  auto& state = *state_;
  graph().setInputCallback(
      state.outputConverterNode, [this, &state](int32_t bus, int32_t frames, float* data) {
        const int64_t before = state.taken;
        state.position.beginTaking();
        PushCurrentInputBufferIntoAudioUnit(this, bus, frames, data, bytesOf(frames));
        state.position.endTaking(frames, state.taken - before);
      });
  graph().setRenderCallback([&state](const AudioGraph::Rendered& piece) {
    state.position.noteRendered(piece.begin, piece.end, piece.inputBegin, piece.inputEnd);
  });
  setConverterNode(state.outputConverterNode, static_cast<uint32_t>(AudioScope::kInput),
                   kSampleRate);
}

float LMOutputAudioGraph::rate() const {
  const auto unit = audioUnitForNode(state_->speedNode);
  return unit ? unit->parameter(kAudioUnitParameter_Rate).value_or(0) : 0;
}

void LMOutputAudioGraph::setRate(float rate) {
  if (const auto unit = audioUnitForNode(state_->speedNode))
    unit->setParameter(kAudioUnitParameter_Rate, rate);
}

float LMOutputAudioGraph::volume() const {
  const auto unit = audioUnitForNode(state_->outputNode);
  return unit ? unit->parameter(kAudioUnitParameter_Volume).value_or(0) : 0;
}

void LMOutputAudioGraph::setVolume(float volume) {
  if (const auto unit = audioUnitForNode(state_->outputNode))
    unit->setParameter(kAudioUnitParameter_Volume, volume);
}

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
  const uint64_t count = buffer ? buffer->readBytes(data, bytesOf(frame)) : 0;
  state_->taken += static_cast<int64_t>(count / kBytesPerFrame);
  const bool isWhole = buffer && count == bytesOf(frame);
  if (!isWhole && state_->hasSound) ++state_->underruns;
  return isWhole;
}

bool LMOutputAudioGraph::writeSample(const void* data, int32_t frame) {
  if (const auto buffer = dataBuffer()) buffer->appendBytes(data, bytesOf(frame));
  if (frame > 0) state_->hasSound = true;
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

double LMOutputAudioGraph::unheardFrames() const {
  return state_->position.unheard(graph().now(), [this] { return bufferFrames(); });
}

void LMOutputAudioGraph::clearBuffer() {
  state_->hasSound = false;
  if (const auto buffer = dataBuffer()) buffer->clear();
  state_->position.forget();
  graph().flush();
}

int64_t LMOutputAudioGraph::underruns() const { return state_->underruns; }

void LMOutputAudioGraph::decodeMoreAudioDataToAudioOutput() {
  if (auto* target = delegate()) target->decodeMoreAudioDataToAudioOutput();
}

void LMOutputAudioGraph::audioOutputForwordSample(double frames) {
  if (auto* target = delegate()) target->audioOutputForwordSample(frames);
}

}  // namespace kestrel
