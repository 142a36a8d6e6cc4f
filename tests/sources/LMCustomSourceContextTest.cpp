#include <gtest/gtest.h>
#include <kestrel/LMCustomSource.h>

#include <cerrno>
#include <cstdint>

#include "support/FFmpegOwners.h"
#include "tests/sources/CustomSources.h"
#include "tests/support/NoMemory.h"

namespace kestrel::test {
namespace {

/// Delivers no bytes but one answer.
class AnsweringSource : public LMCustomSource {
 public:
  explicit AnsweringSource(int32_t answer) : answer_(answer) {}
  int32_t read(uint8_t* /*buffer*/, int32_t /*size*/) override { return answer_; }
  int64_t filesize() const override { return 1000; }

 private:
  int32_t answer_;
};

// The I/O context.

TEST(LMCustomSourceContext, ContextIsMadeOnce) {
  LMCustomSource source;
  AVIOContext* context = source.avio_context();
  ASSERT_NE(context, nullptr);
  EXPECT_EQ(source.io_context(), context);
  EXPECT_EQ(source.avio_context(), context);
}

TEST(LMCustomSourceContext, ContextReadsIntoABufferOfTheSourcesSize) {
  LMCustomSource source;
  const AVIOContext* context = source.avio_context();
  ASSERT_NE(context, nullptr);
  EXPECT_EQ(context->buffer_size, 352800);
  EXPECT_EQ(context->max_packet_size, 352800);
}

TEST(LMCustomSourceContext, ContextIsForReadingAndSeeking) {
  LMCustomSource source;
  const AVIOContext* context = source.avio_context();
  ASSERT_NE(context, nullptr);
  EXPECT_EQ(context->write_flag, 0);
  EXPECT_NE(context->read_packet, nullptr);
  EXPECT_EQ(context->write_packet, nullptr);
  EXPECT_NE(context->seekable & AVIO_SEEKABLE_NORMAL, 0);
}

TEST(LMCustomSourceContext, ContextAsksTheSourceForWholeBuffers) {
  ObservedSource source(counting(400000));
  uint8_t byte = 0;
  ASSERT_EQ(avio_read(source.avio_context(), &byte, 1), 1);
  EXPECT_EQ(source.largestRead, 352800);
  EXPECT_EQ(source.read_offset(), 352800);
}

TEST(LMCustomSourceContext, ContextReadsTheSourcesBytes) {
  ObservedSource source(counting(400000));
  Bytes bytes(400000);
  EXPECT_EQ(avio_read(source.avio_context(), bytes.data(), 400000), 400000);
  EXPECT_EQ(bytes, counting(400000));
}

TEST(LMCustomSourceContext, ContextEndsWithTheSource) {
  ObservedSource source(counting(10));
  AVIOContext* context = source.avio_context();
  Bytes bytes(20);
  EXPECT_EQ(avio_read(context, bytes.data(), 20), 10);
  EXPECT_EQ(avio_read(context, bytes.data(), 20), AVERROR_EOF);
  EXPECT_TRUE(avio_feof(context));
}

TEST(LMCustomSourceContext, ContextPassesAReadingErrorOn) {
  AnsweringSource source(AVERROR(EIO));
  uint8_t byte = 0;
  EXPECT_EQ(avio_read(source.avio_context(), &byte, 1), AVERROR(EIO));
}

TEST(LMCustomSourceContext, ContextKnowsTheSourcesSize) {
  ObservedSource source(counting(1234));
  EXPECT_EQ(avio_size(source.avio_context()), 1234);
}

TEST(LMCustomSourceContext, ContextSeeksInTheSource) {
  ObservedSource source(counting(200));
  AVIOContext* context = source.avio_context();
  EXPECT_EQ(avio_seek(context, 150, SEEK_SET), 150);
  EXPECT_EQ(avio_r8(context), 150);
}

TEST(LMCustomSourceContext, NoContextWithoutMemoryForItsBuffer) {
  LMCustomSource source;
  {
    const NoMemory shortage;
    EXPECT_EQ(source.avio_context(), nullptr);
  }
  EXPECT_EQ(source.io_context(), nullptr);
}

TEST(LMCustomSourceContext, ContextIsMadeAfterAFailureToMakeIt) {
  LMCustomSource source;
  {
    const NoMemory shortage;
    source.avio_context();
  }
  EXPECT_NE(source.avio_context(), nullptr);
}

// Reading.

TEST(LMCustomSourceContext, PacketMovesTheOffsetByWhatWasRead) {
  ObservedSource source(counting(100));
  Bytes bytes(60);
  EXPECT_EQ(source.read_packet(bytes.data(), 60), 60);
  EXPECT_EQ(source.read_offset(), 60);
  EXPECT_EQ(source.read_packet(bytes.data(), 60), 40);
  EXPECT_EQ(source.read_offset(), 100);
  EXPECT_EQ(bytes[39], 99);
}

TEST(LMCustomSourceContext, PacketAtTheEndIsEmpty) {
  ObservedSource source(counting(5));
  source.setRead_offset(5);
  Bytes bytes(10);
  EXPECT_EQ(source.read_packet(bytes.data(), 10), 0);
  EXPECT_EQ(source.read_offset(), 5);
}

TEST(LMCustomSourceContext, NegativeAnswerIsAddedToTheOffsetToo) {
  AnsweringSource source(-5);
  source.setRead_offset(100);
  uint8_t byte = 0;
  EXPECT_EQ(source.read_packet(&byte, 1), -5);
  EXPECT_EQ(source.read_offset(), 95);
}

TEST(LMCustomSourceContext, AnswerIsNotClamped) {
  AnsweringSource source(500);
  uint8_t byte = 0;
  EXPECT_EQ(source.read_packet(&byte, 1), 500);
  EXPECT_EQ(source.read_offset(), 500);
}

// Seeking. The source has 1000 bytes, and stands at 100.

class LMCustomSourceSeek : public testing::Test {
 protected:
  LMCustomSourceSeek() { source_.setRead_offset(100); }

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

TEST_F(LMCustomSourceSeek, SetGoesToTheOffset) { expectMoved(source_.seek(7, SEEK_SET), 7); }

TEST_F(LMCustomSourceSeek, CurrentAddsToTheOffset) {
  expectMoved(source_.seek(7, SEEK_CUR), 107);
  expectMoved(source_.seek(-100, SEEK_CUR), 7);
}

TEST_F(LMCustomSourceSeek, EndAddsToTheSize) { expectMoved(source_.seek(-7, SEEK_END), 993); }

TEST_F(LMCustomSourceSeek, PlaceBehindTheEndIsTaken) {
  expectMoved(source_.seek(5000, SEEK_SET), 5000);
  expectMoved(source_.seek(1, SEEK_END), 1001);
}

TEST_F(LMCustomSourceSeek, PlaceBeforeTheStartIsTaken) {
  expectMoved(source_.seek(-7, SEEK_SET), -7);
}

TEST_F(LMCustomSourceSeek, SizeIsAnsweredWithoutMoving) {
  EXPECT_EQ(source_.seek(7, AVSEEK_SIZE), 1000);
  EXPECT_EQ(source_.read_offset(), 100);
}

TEST_F(LMCustomSourceSeek, ForcedSizeIsUnknown) { expectRefused(AVSEEK_SIZE | AVSEEK_FORCE); }

TEST_F(LMCustomSourceSeek, ForcedPlaceIsUnknown) { expectRefused(SEEK_SET | AVSEEK_FORCE); }

TEST_F(LMCustomSourceSeek, OtherWaysAreUnknown) {
  for (const int32_t whence : {-1, 3, 4, 65535, 65537}) expectRefused(whence);
}

}  // namespace
}  // namespace kestrel::test
