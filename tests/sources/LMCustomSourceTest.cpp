#include <gtest/gtest.h>
#include <kestrel/LMCustomSource.h>
#include <kestrel/LMFFMedia.h>
#include <kestrel/MemorySource.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <latch>
#include <limits>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "support/FFmpegOwners.h"
#include "tests/support/Fixture.h"

namespace kestrel {
namespace {

using Bytes = std::vector<uint8_t>;

/// Serves bytes in memory, and notes how many it is asked for.
class ObservedSource : public MemorySource {
 public:
  explicit ObservedSource(Bytes bytes) : MemorySource(std::move(bytes)) {}
  explicit ObservedSource(std::vector<uint8_t> bytes)
      : MemorySource(std::make_shared<const std::vector<uint8_t>>(std::move(bytes))) {}

  std::shared_ptr<LMMediaSource> copy() const override {
    return std::make_shared<ObservedSource>(bytes());
  }

  int32_t read(uint8_t* buffer, int32_t size) override {
    largestRead = std::max(largestRead, size);
    return MemorySource::read(buffer, size);
  }

  int32_t largestRead = 0;
};

/// Delivers no bytes but one answer.
class AnsweringSource : public LMCustomSource {
 public:
  explicit AnsweringSource(int32_t answer) : answer_(answer) {}
  int32_t read(uint8_t* /*buffer*/, int32_t /*size*/) override { return answer_; }
  int64_t filesize() const override { return 1000; }

 private:
  int32_t answer_;
};

/// While it lives, the media libraries cannot allocate.
class NoMemory {
 public:
  NoMemory() { av_max_alloc(1); }
  ~NoMemory() { av_max_alloc(std::numeric_limits<int>::max()); }
  NoMemory(const NoMemory&) = delete;
  NoMemory& operator=(const NoMemory&) = delete;
};

Bytes contentOf(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

/// 0, 1, 2 …
Bytes counting(size_t count) {
  Bytes bytes(count);
  for (size_t i = 0; i < count; ++i) bytes[i] = static_cast<uint8_t>(i);
  return bytes;
}

/// A WAV file whose sound is in a format that nobody knows.
Bytes unknownSound() {
  return {'R', 'I', 'F', 'F', 44, 0,  0, 0, 'W',  'A',  'V', 'E',  // 52 bytes in all
          'f', 'm', 't', ' ', 16, 0,  0, 0, 0xAB, 0x7B, 1,   0,    // format, channels
          64,  31,  0,   0,   64, 31, 0, 0, 1,    0,    8,   0,    // 8000 Hz
          'd', 'a', 't', 'a', 8,  0,  0, 0, 1,    2,    3,   4,   5, 6, 7, 8};
}

// The base class.

TEST(LMCustomSourceTest, BeginsAtZeroWithoutAContext) {
  const LMCustomSource source;
  EXPECT_EQ(source.read_offset(), 0);
  EXPECT_EQ(source.io_context(), nullptr);
  EXPECT_FALSE(source.isOpen());
}

TEST(LMCustomSourceTest, IsEmptyUnlessASubclassSaysOtherwise) {
  LMCustomSource source;
  uint8_t byte = 1;
  EXPECT_EQ(source.filesize(), 0);
  EXPECT_EQ(source.read(&byte, 1), 0);
  EXPECT_EQ(byte, 1);
}

TEST(LMCustomSourceTest, BufferHoldsOneSecondOfSound) {
  EXPECT_EQ(LMCustomSource().buffer_size(), 352800);
}

TEST(LMCustomSourceTest, OffsetIsKept) {
  LMCustomSource source;
  source.setRead_offset(int64_t{1} << 40);
  EXPECT_EQ(source.read_offset(), int64_t{1} << 40);
}

TEST(LMCustomSourceTest, NeverOpenedIsDestroyedWithoutATrace) {
  EXPECT_NO_FATAL_FAILURE({ const LMCustomSource source; });
}

TEST(LMCustomSourceTest, ContextWithoutADemuxerIsFreed) {
  EXPECT_NO_FATAL_FAILURE({
    LMCustomSource source;
    source.avio_context();
  });
}

// The I/O context.

TEST(LMCustomSourceTest, ContextIsMadeOnce) {
  LMCustomSource source;
  AVIOContext* context = source.avio_context();
  ASSERT_NE(context, nullptr);
  EXPECT_EQ(source.io_context(), context);
  EXPECT_EQ(source.avio_context(), context);
}

TEST(LMCustomSourceTest, ContextReadsIntoABufferOfTheSourcesSize) {
  LMCustomSource source;
  const AVIOContext* context = source.avio_context();
  ASSERT_NE(context, nullptr);
  EXPECT_EQ(context->buffer_size, 352800);
  EXPECT_EQ(context->max_packet_size, 352800);
}

TEST(LMCustomSourceTest, ContextIsForReadingAndSeeking) {
  LMCustomSource source;
  const AVIOContext* context = source.avio_context();
  ASSERT_NE(context, nullptr);
  EXPECT_EQ(context->write_flag, 0);
  EXPECT_NE(context->read_packet, nullptr);
  EXPECT_EQ(context->write_packet, nullptr);
  EXPECT_NE(context->seekable & AVIO_SEEKABLE_NORMAL, 0);
}

TEST(LMCustomSourceTest, ContextAsksTheSourceForWholeBuffers) {
  ObservedSource source(counting(400000));
  uint8_t byte = 0;
  ASSERT_EQ(avio_read(source.avio_context(), &byte, 1), 1);
  EXPECT_EQ(source.largestRead, 352800);
  EXPECT_EQ(source.read_offset(), 352800);
}

TEST(LMCustomSourceTest, ContextReadsTheSourcesBytes) {
  ObservedSource source(counting(400000));
  Bytes bytes(400000);
  EXPECT_EQ(avio_read(source.avio_context(), bytes.data(), 400000), 400000);
  EXPECT_EQ(bytes, counting(400000));
}

TEST(LMCustomSourceTest, ContextEndsWithTheSource) {
  ObservedSource source(counting(10));
  AVIOContext* context = source.avio_context();
  Bytes bytes(20);
  EXPECT_EQ(avio_read(context, bytes.data(), 20), 10);
  EXPECT_EQ(avio_read(context, bytes.data(), 20), AVERROR_EOF);
  EXPECT_TRUE(avio_feof(context));
}

TEST(LMCustomSourceTest, ContextPassesAReadingErrorOn) {
  AnsweringSource source(AVERROR(EIO));
  uint8_t byte = 0;
  EXPECT_EQ(avio_read(source.avio_context(), &byte, 1), AVERROR(EIO));
}

TEST(LMCustomSourceTest, ContextKnowsTheSourcesSize) {
  ObservedSource source(counting(1234));
  EXPECT_EQ(avio_size(source.avio_context()), 1234);
}

TEST(LMCustomSourceTest, ContextSeeksInTheSource) {
  ObservedSource source(counting(200));
  AVIOContext* context = source.avio_context();
  EXPECT_EQ(avio_seek(context, 150, SEEK_SET), 150);
  EXPECT_EQ(avio_r8(context), 150);
}

TEST(LMCustomSourceTest, NoContextWithoutMemoryForItsBuffer) {
  LMCustomSource source;
  {
    const NoMemory shortage;
    EXPECT_EQ(source.avio_context(), nullptr);
  }
  EXPECT_EQ(source.io_context(), nullptr);
}

TEST(LMCustomSourceTest, ContextIsMadeAfterAFailureToMakeIt) {
  LMCustomSource source;
  {
    const NoMemory shortage;
    source.avio_context();
  }
  EXPECT_NE(source.avio_context(), nullptr);
}

// Reading.

TEST(LMCustomSourceTest, PacketMovesTheOffsetByWhatWasRead) {
  ObservedSource source(counting(100));
  Bytes bytes(60);
  EXPECT_EQ(source.read_packet(bytes.data(), 60), 60);
  EXPECT_EQ(source.read_offset(), 60);
  EXPECT_EQ(source.read_packet(bytes.data(), 60), 40);
  EXPECT_EQ(source.read_offset(), 100);
  EXPECT_EQ(bytes[39], 99);
}

TEST(LMCustomSourceTest, PacketAtTheEndIsEmpty) {
  ObservedSource source(counting(5));
  source.setRead_offset(5);
  Bytes bytes(10);
  EXPECT_EQ(source.read_packet(bytes.data(), 10), 0);
  EXPECT_EQ(source.read_offset(), 5);
}

TEST(LMCustomSourceTest, NegativeAnswerIsAddedToTheOffsetToo) {
  AnsweringSource source(-5);
  source.setRead_offset(100);
  uint8_t byte = 0;
  EXPECT_EQ(source.read_packet(&byte, 1), -5);
  EXPECT_EQ(source.read_offset(), 95);
}

TEST(LMCustomSourceTest, AnswerIsNotClamped) {
  AnsweringSource source(500);
  uint8_t byte = 0;
  EXPECT_EQ(source.read_packet(&byte, 1), 500);
  EXPECT_EQ(source.read_offset(), 500);
}

// Seeking. The source has 1000 bytes, and stands at 100.

class LMCustomSourceSeekTest : public testing::Test {
 protected:
  LMCustomSourceSeekTest() { source_.setRead_offset(100); }

  void expectMoved(int64_t answer, int64_t position) {
    EXPECT_EQ(answer, position);
    EXPECT_EQ(source_.read_offset(), position);
  }
  void expectRefused(int32_t whence) {
    EXPECT_EQ(source_.seek(7, whence), AVERROR(ENOSYS)) << whence;
    EXPECT_EQ(source_.read_offset(), 100);
  }

  AnsweringSource source_{0};
};

TEST_F(LMCustomSourceSeekTest, SetGoesToTheOffset) { expectMoved(source_.seek(7, SEEK_SET), 7); }

TEST_F(LMCustomSourceSeekTest, CurrentAddsToTheOffset) {
  expectMoved(source_.seek(7, SEEK_CUR), 107);
  expectMoved(source_.seek(-100, SEEK_CUR), 7);
}

TEST_F(LMCustomSourceSeekTest, EndAddsToTheSize) { expectMoved(source_.seek(-7, SEEK_END), 993); }

TEST_F(LMCustomSourceSeekTest, PlaceBehindTheEndIsTaken) {
  expectMoved(source_.seek(5000, SEEK_SET), 5000);
  expectMoved(source_.seek(1, SEEK_END), 1001);
}

TEST_F(LMCustomSourceSeekTest, PlaceBeforeTheStartIsTaken) {
  expectMoved(source_.seek(-7, SEEK_SET), -7);
}

TEST_F(LMCustomSourceSeekTest, SizeIsAnsweredWithoutMoving) {
  EXPECT_EQ(source_.seek(7, AVSEEK_SIZE), 1000);
  EXPECT_EQ(source_.read_offset(), 100);
}

TEST_F(LMCustomSourceSeekTest, ForcedSizeIsUnknown) { expectRefused(AVSEEK_SIZE | AVSEEK_FORCE); }

TEST_F(LMCustomSourceSeekTest, ForcedPlaceIsUnknown) { expectRefused(SEEK_SET | AVSEEK_FORCE); }

TEST_F(LMCustomSourceSeekTest, OtherWaysAreUnknown) {
  for (const int32_t whence : {-1, 3, 4, 65535, 65537}) expectRefused(whence);
}

// Opening.

TEST(LMCustomSourceTest, OpensThroughItsOwnContext) {
  ObservedSource source(contentOf(test::fixture("av25.mp4")));
  source.open();
  ASSERT_TRUE(source.isOpen());
  EXPECT_EQ(source.formatContext()->pb, source.io_context());
  EXPECT_EQ(source.formatContext()->nb_streams, 2U);
}

TEST(LMCustomSourceTest, OpeningLeavesTheStreamsProbed) {
  ObservedSource source(contentOf(test::fixture("av25.ts")));
  source.open();
  ASSERT_TRUE(source.isOpen());
  ASSERT_EQ(source.formatContext()->nb_streams, 2U);
  EXPECT_EQ(source.formatContext()->streams[0]->codecpar->width, 320);
  EXPECT_EQ(source.formatContext()->streams[1]->codecpar->sample_rate, 44100);
}

TEST(LMCustomSourceTest, StreamThatProbingCannotIdentifyIsKept) {
  ObservedSource source(unknownSound());
  source.open();
  ASSERT_TRUE(source.isOpen());
  ASSERT_EQ(source.formatContext()->nb_streams, 1U);
  EXPECT_EQ(source.formatContext()->streams[0]->codecpar->codec_id, AV_CODEC_ID_NONE);
}

TEST(LMCustomSourceTest, BytesOfNoContainerDoNotOpen) {
  ObservedSource source(Bytes(1000, 0));
  source.open();
  EXPECT_FALSE(source.isOpen());
  EXPECT_TRUE(source.lastError());
}

TEST(LMCustomSourceTest, EmptySourceDoesNotOpen) {
  LMCustomSource source;
  source.open();
  EXPECT_FALSE(source.isOpen());
  EXPECT_TRUE(source.lastError());
}

TEST(LMCustomSourceTest, ContextOutlivesAFailureToOpen) {
  ObservedSource source(Bytes(1000, 0));
  source.open();
  AVIOContext* context = source.io_context();
  ASSERT_NE(context, nullptr);
  source.setRead_offset(0);
  source.open();
  EXPECT_EQ(source.io_context(), context);
}

TEST(LMCustomSourceTest, ContextIsReusedByALaterOpen) {
  ObservedSource source(contentOf(test::fixture("av25.mp4")));
  AVIOContext* context = source.avio_context();
  source.open();
  ASSERT_TRUE(source.isOpen());
  EXPECT_EQ(source.formatContext()->pb, context);
}

// Copies.

TEST(LMCustomSourceTest, CopyStartsAnew) {
  LMCustomSource source;
  source.setFullpath("a/path");
  source.setRead_offset(77);
  source.avio_context();
  const auto copy = std::dynamic_pointer_cast<LMCustomSource>(source.copy());
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(copy->fullpath(), "a/path");
  EXPECT_EQ(copy->read_offset(), 0);
  EXPECT_EQ(copy->io_context(), nullptr);
}

TEST(LMCustomSourceTest, MediasReadFromPlacesOfTheirOwn) {
  const auto source = std::make_shared<ObservedSource>(contentOf(test::fixture("numbered25.mkv")));
  const auto medias = source->createMedias();
  ASSERT_EQ(medias.size(), 2U);
  const auto other = std::dynamic_pointer_cast<ObservedSource>(medias[1]->source());
  ASSERT_NE(other, nullptr);
  ASSERT_NE(other, source);

  const int64_t place = source->read_offset();
  while (medias[1]->forwardNextPacket()) {
  }
  EXPECT_TRUE(medias[1]->isAtEnd());
  EXPECT_EQ(source->read_offset(), place);
  EXPECT_FALSE(medias[0]->isAtEnd());
}

// Packets.

/// Fails from a place on.
class FailingSource : public ObservedSource {
 public:
  using ObservedSource::ObservedSource;
  int64_t failsFrom = std::numeric_limits<int64_t>::max();

  int32_t read(uint8_t* buffer, int32_t size) override {
    return read_offset() >= failsFrom ? AVERROR(EIO) : ObservedSource::read(buffer, size);
  }
};

TEST(LMCustomSourceTest, TellsAFailedReadFromTheEnd) {
  const Bytes whole = contentOf(test::fixture("numbered25.mkv"));
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

TEST(LMCustomSourceTest, NothingYetIsNoEnd) {
  for (const char* name : {"av25.mp4", "av25.ts", "pcm-mono-44100-s16.wav"}) {
    const Bytes whole = contentOf(test::fixture(name));
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

TEST(LMCustomSourceTest, InterruptEndsTheWaitForASource) {
  LateSource source(contentOf(test::fixture("av25.ts")));
  source.open();
  ASSERT_TRUE(source.isOpen());
  source.stallsFrom = source.read_offset();
  int questions = 0;
  source.setInterrupt([&] { return ++questions > 5; });
  packetsOf(source);
  EXPECT_EQ(source.lastError().code, AVERROR_EXIT);
  EXPECT_LT(source.inVain - source.questions / 2, 10);
}

TEST(LMCustomSourceTest, InterruptEndsTheOpeningOfASourceThatStalls) {
  LateSource source(contentOf(test::fixture("av25.ts")));
  source.stallsFrom = 4096;
  int questions = 0;
  source.setInterrupt([&] { return ++questions > 20; });
  source.open();
  EXPECT_LT(source.inVain, 40);
}

TEST(LMCustomSourceTest, ErrorsAreNotAskedForWithoutEnd) {
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
      BrokenSource source(contentOf(test::fixture(name)));
      source.failsFrom = place;
      source.open();
      for (int i = 0; i < 500; ++i) packetsOf(source);
      EXPECT_LE(source.errors, 100) << name << ' ' << place;
    }
}

TEST(LMCustomSourceTest, InputThatStallsHoldsNoOtherOpenUp) {
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
  StallingSource late(contentOf(test::fixture("av25.ts")), stalled, released);
  std::jthread opener([&] { late.open(); });
  stalled.wait();
  const auto media = std::make_shared<LMFFMedia>();
  media->setSource(LMMediaSource::mediaWithPath(test::fixture("av25.ts").string()));
  media->open();
  EXPECT_TRUE(media->hasVideo());
  released.count_down();
}

}  // namespace
}  // namespace kestrel
