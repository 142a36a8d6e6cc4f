#include <gmock/gmock.h>
#include <kestrel/LMAudioGraph.h>
#include <kestrel/Log.h>

#include <cstring>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace kestrel {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

/// Collects what is logged while it lives.
class LogLines {
 public:
  LogLines() {
    setLogSink([this](std::string_view line) {
      const std::lock_guard guard(lock_);
      lines_.emplace_back(line);
    });
  }
  ~LogLines() { setLogSink({}); }
  LogLines(const LogLines&) = delete;
  LogLines& operator=(const LogLines&) = delete;

  std::vector<std::string> get() const {
    const std::lock_guard guard(lock_);
    return lines_;
  }

 private:
  mutable std::mutex lock_;
  std::vector<std::string> lines_;
};

/// Plays one number, as long as there is any of it.
class Chain : public LMAudioGraph {
 public:
  explicit Chain(int32_t available = 1 << 30) : left_(available) {
    graph().setDevice(device);
    build();
  }
  ~Chain() override { stop(); }

  bool streamReadSample(int32_t stream, void* data, int32_t numberFrames) override {
    streams.push_back(stream);
    auto* samples = static_cast<float*>(data);
    const int32_t count = std::min(numberFrames, left_);
    std::fill_n(samples, 2 * count, 0.5F);
    left_ -= count;
    return count == numberFrames;
  }

  std::shared_ptr<PulledAudioDevice> device = std::make_shared<PulledAudioDevice>();
  std::vector<std::string> steps;
  std::vector<int32_t> streams;
  int32_t converter = 0;
  int32_t output = 0;

 protected:
  void createNode() override {
    steps.emplace_back("createNode");
    converter = createAUNode(kAudioUnitType_FormatConverter, kAudioUnitSubType_Converter);
    output = createAUNode(kAudioUnitType_Output, kAudioUnitSubType_DefaultOutput);
    EXPECT_EQ(audioUnitForNode(converter), nullptr);  // the graph is not open yet
    connectNode(converter, output);
  }
  void configNode() override {
    steps.emplace_back("configNode");
    EXPECT_NE(audioUnitForNode(converter), nullptr);
    setInputCallbackForNode(converter);
    setConverterNode(converter, 1, 44100);
  }

 private:
  int32_t left_;
};

TEST(LMAudioGraph, IsBuiltByItsSubclass) {
  Chain chain;
  EXPECT_THAT(chain.steps, ElementsAre("createNode", "configNode"));
  EXPECT_EQ(chain.audioUnitForNode(chain.converter)->format(AudioScope::kInput),
            AudioStreamFormat{});
  EXPECT_EQ(chain.audioUnitForNode(99), nullptr);
}

TEST(LMAudioGraph, PlaysWhatItsSubclassSupplies) {
  Chain chain;
  EXPECT_FALSE(chain.isStart());
  chain.start();
  EXPECT_TRUE(chain.isStart());
  EXPECT_THAT(chain.device->pull(256), Each(0.5F));
  EXPECT_THAT(chain.streams, Each(0));
  chain.stop();
  EXPECT_FALSE(chain.isStart());
  chain.start();
  EXPECT_THAT(chain.device->pull(256), Each(0.5F));
}

TEST(LMAudioGraph, PartOfWhatWasWantedIsNotPlayed) {
  Chain chain(300);
  chain.start();
  EXPECT_THAT(chain.device->pull(200), Each(0.5F));
  EXPECT_THAT(chain.device->pull(200), Each(0.0F));
}

TEST(LMAudioGraph, InputMayComeFromAnotherGraph) {
  Chain source;
  Chain chain(0);
  chain.setInputCallbackForNode(chain.converter, &source);
  chain.start();
  EXPECT_THAT(chain.device->pull(100), Each(0.5F));
  EXPECT_THAT(chain.streams, IsEmpty());
}

TEST(LMAudioGraph, WithoutANodeItFailsAndSaysSo) {
  const LogLines log;
  LMAudioGraph graph;
  graph.start();
  EXPECT_FALSE(graph.isStart());
  EXPECT_THAT(log.get(), ElementsAre("AUGraphInitialize (graph)", "AUGraphStart(graph)"));
}

TEST(LMAudioGraph, RemovedNodeIsGone) {
  const LogLines log;
  Chain chain;
  chain.removeAUNode(chain.converter);
  chain.removeAUNode(99);
  chain.setConverterNode(chain.converter, 1, 8000);
  chain.start();
  EXPECT_FALSE(chain.isStart());
  EXPECT_EQ(chain.createAUNode(fourCharCode("none"), 0), 0);
}

TEST(LMAudioGraph, ItselfSuppliesAndTakesNothing) {
  LMAudioGraph graph;
  float frame[2] = {};
  EXPECT_FALSE(graph.streamReadSample(0, frame, 1));
  EXPECT_FALSE(graph.streamWriteSample(0, frame, 1));
}

TEST(LMAudioGraph, WithoutADeviceItPlaysOnAndSaysSoOnce) {
  const LogLines log;
  // No other test of this program lacks a device; this one may be run again.
  static bool isFirstRun = true;
  for (int i = 0; i < 2; ++i) {
    Chain chain;
    chain.device->setIsMissing(true);
    for (int j = 0; j < 2; ++j) {
      chain.start();
      EXPECT_TRUE(chain.isStart());
      chain.stop();
    }
  }
  if (std::exchange(isFirstRun, false))
    EXPECT_THAT(log.get(), ElementsAre("there is no audio device: playing without being heard"));
  else
    EXPECT_THAT(log.get(), IsEmpty());
}

TEST(LMAudioGraph, CallbackFillsWhatIsMissingWithSilence) {
  std::vector<float> data(20, 1.0F);
  EXPECT_EQ(PushCurrentInputBufferIntoAudioUnit(nullptr, 0, 10, data.data(), 80), 0);
  EXPECT_THAT(data, Each(0.0F));
  Chain chain(5);  // supplies half of it
  data.assign(20, 1.0F);
  EXPECT_EQ(PushCurrentInputBufferIntoAudioUnit(&chain, 3, 10, data.data(), 80), 0);
  EXPECT_THAT(data, Each(0.0F));
  EXPECT_THAT(chain.streams, ElementsAre(3));
}

}  // namespace
}  // namespace kestrel
