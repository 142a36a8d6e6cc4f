#include <gmock/gmock.h>
#include <kestrel/LMOutputAudioGraph.h>

#include <atomic>
#include <numeric>
#include <thread>

namespace kestrel {
namespace {

using testing::Each;

/// Frames whose samples count up from `first`.
std::vector<float> counting(int32_t frames, int first = 0) {
  std::vector<float> sound(static_cast<size_t>(frames) * 2);
  std::iota(sound.begin(), sound.end(), static_cast<float>(first));
  return sound;
}

/// Answers each request for more with a block, until there is no more.
class Feeder : public LMOutputAudioGraphDelegate {
 public:
  Feeder(LMOutputAudioGraph& graph, int blocks) : graph_(graph), blocks_(blocks) {
    graph_.setDelegate(this);
  }
  ~Feeder() override { graph_.setDelegate(nullptr); }

  void decodeMoreAudioDataToAudioOutput() override {
    ++asked;
    if (blocks_-- <= 0) return;
    const auto sound = counting(100, written_ * 2);
    written_ += 100;
    graph_.writeSample(sound.data(), 100);
  }

  int asked = 0;

 private:
  LMOutputAudioGraph& graph_;
  int blocks_;
  int written_ = 0;
};

class LMOutputAudioGraphTest : public testing::Test {
 protected:
  void queueBytes(size_t count) {
    const std::vector<uint8_t> bytes(count, 1);
    graph_.dataBuffer()->appendBytes(bytes.data(), bytes.size());
  }

  LMOutputAudioGraph graph_;
};

// State.

TEST_F(LMOutputAudioGraphTest, StartsStoppedAndEmpty) {
  EXPECT_FALSE(graph_.isStart());
  EXPECT_EQ(graph_.rate(), 1.0F);
  EXPECT_EQ(graph_.volume(), 1.0F);
  EXPECT_EQ(graph_.delegate(), nullptr);
  ASSERT_TRUE(graph_.dataBuffer());
  EXPECT_EQ(graph_.bufferFrames(), 0);
}

TEST_F(LMOutputAudioGraphTest, StartsAndStopsAsOftenAsNeeded) {
  for (int i = 0; i < 3; ++i) {
    graph_.start();
    EXPECT_TRUE(graph_.isStart());
    graph_.stop();
    EXPECT_FALSE(graph_.isStart());
  }
}

TEST_F(LMOutputAudioGraphTest, RateAndVolumeAreKept) {
  graph_.setRate(0.5F);
  graph_.setVolume(0.25F);
  EXPECT_EQ(graph_.rate(), 0.5F);
  EXPECT_EQ(graph_.volume(), 0.25F);
}

// The queue.

TEST_F(LMOutputAudioGraphTest, FramesComeOutAsTheyWentIn) {
  const auto written = counting(300);
  EXPECT_TRUE(graph_.writeSample(written.data(), 300));
  EXPECT_EQ(graph_.bufferFrames(), 300);
  std::vector<float> read(200);
  EXPECT_TRUE(graph_.readSample(read.data(), 100));
  EXPECT_EQ(read, std::vector<float>(written.begin(), written.begin() + 200));
  EXPECT_TRUE(graph_.readSample(read.data(), 100));
  EXPECT_EQ(read, std::vector<float>(written.begin() + 200, written.begin() + 400));
  EXPECT_EQ(graph_.bufferFrames(), 100);
}

TEST_F(LMOutputAudioGraphTest, FrameIsEightBytes) {
  queueBytes(4096);
  std::vector<float> read(1024);
  EXPECT_TRUE(graph_.readSample(read.data(), 512));
}

TEST_F(LMOutputAudioGraphTest, ShortReadFailsAndLeavesTheQueueEmpty) {
  queueBytes(4095);
  std::vector<float> read(1024);
  EXPECT_FALSE(graph_.readSample(read.data(), 512));
  EXPECT_EQ(graph_.dataBuffer()->length(), 0);
}

TEST_F(LMOutputAudioGraphTest, PartOfAFrameDoesNotCount) {
  queueBytes(17);
  EXPECT_EQ(graph_.bufferFrames(), 2);
}

TEST_F(LMOutputAudioGraphTest, ReadFromTheEmptyQueueFails) {
  float frame[2];
  EXPECT_FALSE(graph_.readSample(frame, 1));
}

TEST_F(LMOutputAudioGraphTest, ReadOrWriteOfNothingSucceeds) {
  float frame[2];
  EXPECT_TRUE(graph_.readSample(frame, 0));
  EXPECT_TRUE(graph_.writeSample(frame, 0));
  EXPECT_TRUE(graph_.writeSample(frame, -1));
  EXPECT_EQ(graph_.bufferFrames(), 0);
}

TEST_F(LMOutputAudioGraphTest, ClearedQueueIsEmptyAndTheGraphGoesOn) {
  graph_.start();
  const auto written = counting(300);
  graph_.writeSample(written.data(), 300);
  graph_.clearBuffer();
  EXPECT_EQ(graph_.bufferFrames(), 0);
  EXPECT_TRUE(graph_.isStart());
}

TEST_F(LMOutputAudioGraphTest, NumberedStreamIsTheOne) {
  const auto written = counting(100);
  EXPECT_TRUE(graph_.streamWriteSample(0, written.data(), 50));
  EXPECT_TRUE(graph_.streamWriteSample(7, written.data() + 100, 50));
  std::vector<float> read(200);
  EXPECT_TRUE(graph_.streamReadSample(3, read.data(), 100));
  EXPECT_EQ(read, written);
  EXPECT_FALSE(graph_.streamReadSample(0, read.data(), 1));
}

TEST_F(LMOutputAudioGraphTest, AnotherBufferMayBeSet) {
  const auto buffer = std::make_shared<LMFIFODataBuffer>();
  const auto written = counting(100);
  buffer->appendBytes(written.data(), 800);
  graph_.setDataBuffer(buffer);
  EXPECT_EQ(graph_.dataBuffer(), buffer);
  EXPECT_EQ(graph_.bufferFrames(), 100);
}

// The delegate.

TEST_F(LMOutputAudioGraphTest, ReadFirstAsksForMore) {
  Feeder feeder(graph_, 1);
  std::vector<float> read(200);
  EXPECT_TRUE(graph_.readSample(read.data(), 100));  // what it asked for is there already
  EXPECT_EQ(read, counting(100));
  EXPECT_EQ(feeder.asked, 1);
}

TEST_F(LMOutputAudioGraphTest, EveryReadAsksOnce) {
  Feeder feeder(graph_, 3);
  std::vector<float> read(200);
  for (int i = 0; i < 5; ++i) graph_.readSample(read.data(), 50);
  EXPECT_EQ(feeder.asked, 5);
  graph_.streamReadSample(0, read.data(), 10);
  EXPECT_EQ(feeder.asked, 6);
}

TEST_F(LMOutputAudioGraphTest, RequestForMoreIsForwarded) {
  graph_.decodeMoreAudioDataToAudioOutput();  // to nobody
  Feeder feeder(graph_, 1);
  graph_.decodeMoreAudioDataToAudioOutput();
  EXPECT_EQ(feeder.asked, 1);
  EXPECT_EQ(graph_.bufferFrames(), 100);
}

// Two threads.

TEST_F(LMOutputAudioGraphTest, OneThreadMayWriteWhileAnotherReads) {
  constexpr int kBlocks = 400;
  std::jthread writer([this] {
    for (int block = 0; block < kBlocks; ++block) {
      const auto sound = counting(64, block * 128);
      graph_.writeSample(sound.data(), 64);
    }
  });
  float expected = 0;
  for (int block = 0; block < kBlocks; ++block) {
    while (graph_.bufferFrames() < 64) std::this_thread::yield();
    std::vector<float> read(128);
    ASSERT_TRUE(graph_.readSample(read.data(), 64));
    for (const float sample : read) ASSERT_EQ(sample, expected++);
  }
}

TEST_F(LMOutputAudioGraphTest, SettingsMayBeChangedWhileAnotherThreadReads) {
  std::jthread player([this](const std::stop_token& stop) {
    std::vector<float> read(128);
    while (!stop.stop_requested()) {
      graph_.readSample(read.data(), 64);
      EXPECT_GE(graph_.rate() * graph_.volume(), 0.0F);
    }
  });
  for (int i = 0; i < 200; ++i) {
    graph_.setRate(static_cast<float>(i));
    graph_.setVolume(static_cast<float>(i));
    graph_.clearBuffer();
    graph_.start();
    graph_.stop();
  }
}

}  // namespace
}  // namespace kestrel
