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
  LMOutputAudioGraphTest() { graph_.graph().setDevice(device_); }

  void queueBytes(size_t count) {
    const std::vector<uint8_t> bytes(count, 1);
    graph_.dataBuffer()->appendBytes(bytes.data(), bytes.size());
  }

  void write(const std::vector<float>& sound) {
    graph_.writeSample(sound.data(), static_cast<int32_t>(sound.size() / 2));
  }

  std::shared_ptr<PulledAudioDevice> device_ = std::make_shared<PulledAudioDevice>();
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

TEST_F(LMOutputAudioGraphTest, ForwardedSamplesReachTheDelegate) {
  struct Listener : LMOutputAudioGraphDelegate {
    void decodeMoreAudioDataToAudioOutput() override {}
    void audioOutputForwordSample(double count) override { frames += count; }
    double frames = 0;
  };
  graph_.audioOutputForwordSample(1);  // to nobody
  Listener listener;
  graph_.setDelegate(&listener);
  graph_.audioOutputForwordSample(2048.5);
  EXPECT_EQ(listener.frames, 2048.5);
  Feeder feeder(graph_, 0);
  graph_.audioOutputForwordSample(1);  // to one whom it does not concern
}

// The device.

TEST_F(LMOutputAudioGraphTest, StartedGraphPlaysTheQueue) {
  const auto sound = counting(2000);
  write(sound);
  graph_.start();
  EXPECT_EQ(device_->pull(1000), std::vector<float>(sound.begin(), sound.begin() + 2000));
  EXPECT_EQ(device_->pull(1000), std::vector<float>(sound.begin() + 2000, sound.end()));
  EXPECT_EQ(graph_.bufferFrames(), 0);
}

TEST_F(LMOutputAudioGraphTest, RateAndVolumeAreThoseOfTheUnits) {
  graph_.setVolume(0.5F);
  write(std::vector<float>(2000, 0.5F));
  graph_.start();
  EXPECT_THAT(device_->pull(1000), Each(0.25F));
  EXPECT_EQ(device_->format(), (AudioDevice::Format{44100, 2}));
}

TEST_F(LMOutputAudioGraphTest, StoppedGraphLosesAndRepeatsNothing) {
  const auto sound = counting(3000);
  write(sound);
  std::vector<float> played;
  for (int i = 0; i < 6; ++i) {
    graph_.start();
    const auto piece = device_->pull(500);
    played.insert(played.end(), piece.begin(), piece.end());
    graph_.stop();
    EXPECT_THAT(device_->pull(100), Each(0.0F));
  }
  EXPECT_EQ(played, sound);
  EXPECT_EQ(graph_.underruns(), 0);
}

TEST_F(LMOutputAudioGraphTest, ShortCycleIsSilentAsAWholeAndCounted) {
  write(counting(300, 1));
  graph_.start();
  device_->pull(200);
  EXPECT_THAT(device_->pull(200), Each(0.0F));  // there were 100
  EXPECT_EQ(graph_.underruns(), 1);
  device_->pull(200);
  EXPECT_EQ(graph_.underruns(), 2);
  const auto more = counting(200, 1);
  write(more);
  EXPECT_EQ(device_->pull(200), more);
  EXPECT_EQ(graph_.underruns(), 2);
}

TEST_F(LMOutputAudioGraphTest, WaitingForTheFirstSoundIsNoUnderrun) {
  graph_.start();
  device_->pull(512);
  EXPECT_EQ(graph_.underruns(), 0);
  write(counting(512, 1));
  device_->pull(512);
  graph_.clearBuffer();
  device_->pull(512);
  EXPECT_EQ(graph_.underruns(), 0);
}

TEST_F(LMOutputAudioGraphTest, EachCycleAsksForMore) {
  Feeder feeder(graph_, 2);
  graph_.start();
  device_->pull(100);
  EXPECT_EQ(feeder.asked, 1);
  graph_.stop();
}

// What has been heard.

TEST_F(LMOutputAudioGraphTest, UnheardIsWhatIsQueuedUntilItIsPlayed) {
  write(counting(1000));
  EXPECT_EQ(graph_.unheardFrames(), 1000);
  std::vector<float> byHand(2 * 100);
  graph_.readSample(byHand.data(), 100);
  EXPECT_EQ(graph_.unheardFrames(), 900);
  graph_.start();
  device_->pull(400);
  EXPECT_EQ(graph_.unheardFrames(), 500);
}

TEST_F(LMOutputAudioGraphTest, UnheardCountsWhatIsOnItsWay) {
  graph_.setRate(2);
  graph_.start();
  double heard = 0;
  int64_t written = 0;
  for (int i = 0; i < 200; ++i) {
    while (graph_.bufferFrames() < 4096) {
      write(counting(1024));
      written += 1024;
    }
    device_->pull(512);
    const double now = static_cast<double>(written) - graph_.unheardFrames();
    EXPECT_GE(now, heard);
    if (i > 20) {
      EXPECT_NEAR(now - heard, 1024, 300);  // the window moves in steps
    }
    heard = now;
  }
  EXPECT_GT(graph_.unheardFrames(), graph_.bufferFrames());
}

TEST_F(LMOutputAudioGraphTest, UnderrunDoesNotMoveWhatIsHeard) {
  write(counting(1024));
  graph_.start();
  device_->pull(1024);
  EXPECT_EQ(graph_.unheardFrames(), 0);
  device_->pull(2048);  // silence
  EXPECT_EQ(graph_.unheardFrames(), 0);
  write(counting(1000));
  device_->pull(512);
  EXPECT_EQ(graph_.unheardFrames(), 488);
  device_->pull(512);  // the rest is lost
  EXPECT_EQ(graph_.unheardFrames(), 0);
}

TEST_F(LMOutputAudioGraphTest, UnderrunInAnotherTempoDoesNotEither) {
  graph_.setRate(1.5F);
  graph_.start();
  for (int i = 0; i < 40; ++i) {
    write(counting(1024));
    device_->pull(512);
  }
  while (graph_.bufferFrames() > 0) device_->pull(512);
  for (int i = 0; i < 40; ++i) device_->pull(512);
  EXPECT_EQ(graph_.unheardFrames(), 0);  // all has been heard, with silence behind it
}

TEST_F(LMOutputAudioGraphTest, NothingIsUnheardOnceCleared) {
  graph_.setRate(0.5F);
  graph_.start();
  for (int i = 0; i < 40; ++i) {
    write(counting(512));
    device_->pull(512);
  }
  EXPECT_GT(graph_.unheardFrames(), 0);
  graph_.clearBuffer();
  EXPECT_EQ(graph_.unheardFrames(), 0);
  write(counting(2000));
  device_->pull(512);
  EXPECT_NEAR(graph_.unheardFrames(), 2000 - 512, 1);  // it begins at its own tempo
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
