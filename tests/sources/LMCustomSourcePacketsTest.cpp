#include <gtest/gtest.h>
#include <kestrel/LMCustomSource.h>
#include <kestrel/LMFFMedia.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <latch>
#include <limits>
#include <memory>
#include <thread>
#include <utility>

#include "support/FFmpegOwners.h"
#include "tests/sources/CustomSources.h"
#include "tests/support/Fixture.h"

namespace kestrel::test {
namespace {

/// Fails from a place on.
class FailingSource : public ObservedSource {
 public:
  using ObservedSource::ObservedSource;
  int64_t failsFrom = std::numeric_limits<int64_t>::max();

  int32_t read(uint8_t* buffer, int32_t size) override {
    return read_offset() >= failsFrom ? AVERROR(EIO) : ObservedSource::read(buffer, size);
  }
};

TEST(LMCustomSourcePackets, TellsAFailedReadFromTheEnd) {
  const Bytes whole = contentOf(fixture("numbered25.mkv"));
  for (const bool fails : {false, true}) {
    FailingSource source(whole);
    source.open();
    ASSERT_TRUE(source.isOpen());
    if (fails) source.failsFrom = source.read_offset();
    AVPacket* packet = av_packet_alloc();
    int count = 0;
    while (source.readPacket(packet)) {
      ++count;
      av_packet_unref(packet);
    }
    av_packet_free(&packet);
    EXPECT_GT(count, 0);
    EXPECT_EQ(source.lastError().code, fails ? AVERROR(EIO) : 0);
  }
  FailingSource closed(whole);
  EXPECT_FALSE(closed.readPacket(nullptr));
}

/// Has nothing yet, now and then or from a place on for ever.
class LateSource : public ObservedSource {
 public:
  using ObservedSource::ObservedSource;
  int64_t stallsFrom = std::numeric_limits<int64_t>::max();
  int questions = 0;
  int inVain = 0;

  int32_t read(uint8_t* buffer, int32_t size) override {
    const bool isLate = read_offset() >= stallsFrom || ++questions % 2 == 0;
    if (isLate) ++inVain;
    return isLate ? AVERROR(EAGAIN) : ObservedSource::read(buffer, std::min(size, 4096));
  }
};

int packetsOf(LMMediaSource& source) {
  int count = 0;
  for (const PacketPtr packet = makePacket(); source.readPacket(packet.get()); ++count)
    av_packet_unref(packet.get());
  return count;
}

TEST(LMCustomSourcePackets, NothingYetIsNoEnd) {
  for (const char* name : {"av25.mp4", "av25.ts", "pcm-mono-44100-s16.wav"}) {
    const Bytes whole = contentOf(fixture(name));
    ObservedSource prompt(whole);
    prompt.open();
    LateSource late(whole);
    late.open();
    ASSERT_TRUE(late.isOpen()) << name;
    EXPECT_EQ(packetsOf(late), packetsOf(prompt)) << name;
    EXPECT_FALSE(late.lastError()) << late.lastError().message;
    EXPECT_GT(late.inVain, 0);
  }
}

TEST(LMCustomSourcePackets, InterruptEndsTheWaitForASource) {
  LateSource source(contentOf(fixture("av25.ts")));
  source.open();
  ASSERT_TRUE(source.isOpen());
  source.stallsFrom = source.read_offset();
  int questions = 0;
  source.setInterrupt([&] { return ++questions > 5; });
  packetsOf(source);
  EXPECT_EQ(source.lastError().code, AVERROR_EXIT);
  EXPECT_LT(source.inVain - source.questions / 2, 10);
}

TEST(LMCustomSourcePackets, InterruptEndsTheOpeningOfASourceThatStalls) {
  LateSource source(contentOf(fixture("av25.ts")));
  source.stallsFrom = 4096;
  int questions = 0;
  source.setInterrupt([&] { return ++questions > 20; });
  source.open();
  EXPECT_LT(source.inVain, 40);
}

TEST(LMCustomSourcePackets, ErrorsAreNotAskedForWithoutEnd) {
  class BrokenSource : public FailingSource {
   public:
    using FailingSource::FailingSource;
    int errors = 0;
    int32_t read(uint8_t* buffer, int32_t size) override {
      const int32_t count = FailingSource::read(buffer, size);
      errors += count < 0 ? 1 : 0;
      return count;
    }
  };
  for (const char* name : {"av25.mp4", "av25.ts", "numbered25.mkv", "pcm-mono-44100-s16.wav"})
    for (const int64_t place : {0, 5000, 20000}) {
      BrokenSource source(contentOf(fixture(name)));
      source.failsFrom = place;
      source.open();
      for (int i = 0; i < 500; ++i) packetsOf(source);
      EXPECT_LE(source.errors, 100) << name << ' ' << place;
    }
}

TEST(LMCustomSourcePackets, InputThatStallsHoldsNoOtherOpenUp) {
  std::latch stalled(1);
  std::latch released(1);
  class StallingSource : public ObservedSource {
   public:
    StallingSource(std::vector<uint8_t> bytes, std::latch& stalled, std::latch& released)
        : ObservedSource(std::move(bytes)), stalled_(stalled), released_(released) {}
    int32_t read(uint8_t* buffer, int32_t size) override {
      if (read_offset() > 0 && stalled_.try_wait() == false) {
        stalled_.count_down();
        released_.wait();
      }
      return ObservedSource::read(buffer, std::min(size, 4096));
    }

   private:
    std::latch& stalled_;
    std::latch& released_;
  };
  StallingSource late(contentOf(fixture("av25.ts")), stalled, released);
  std::jthread opener([&] { late.open(); });
  stalled.wait();
  const auto media = std::make_shared<LMFFMedia>();
  media->setSource(LMMediaSource::mediaWithPath(fixture("av25.ts").string()));
  media->open();
  EXPECT_TRUE(media->hasVideo());
  released.count_down();
}

}  // namespace
}  // namespace kestrel::test
