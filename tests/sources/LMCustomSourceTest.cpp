#include <gtest/gtest.h>
#include <kestrel/LMCustomSource.h>
#include <kestrel/LMFFMedia.h>

#include <cstdint>
#include <memory>

#include "support/FFmpegOwners.h"
#include "tests/sources/CustomSources.h"
#include "tests/support/Fixture.h"

namespace kestrel::test {
namespace {

/// A WAV file whose sound is in a format that nobody knows.
Bytes unknownSound() {
  return {'R', 'I', 'F', 'F', 44, 0,  0, 0, 'W',  'A',  'V', 'E',  // 52 bytes in all
          'f', 'm', 't', ' ', 16, 0,  0, 0, 0xAB, 0x7B, 1,   0,    // format, channels
          64,  31,  0,   0,   64, 31, 0, 0, 1,    0,    8,   0,    // 8000 Hz
          'd', 'a', 't', 'a', 8,  0,  0, 0, 1,    2,    3,   4,   5, 6, 7, 8};
}

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

// Opening.

TEST(LMCustomSourceTest, OpensThroughItsOwnContext) {
  ObservedSource source(contentOf(fixture("av25.mp4")));
  source.open();
  ASSERT_TRUE(source.isOpen());
  EXPECT_EQ(source.formatContext()->pb, source.io_context());
  EXPECT_EQ(source.formatContext()->nb_streams, 2U);
}

TEST(LMCustomSourceTest, OpeningLeavesTheStreamsProbed) {
  ObservedSource source(contentOf(fixture("av25.ts")));
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
  ObservedSource source(contentOf(fixture("av25.mp4")));
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
  const auto source = std::make_shared<ObservedSource>(contentOf(fixture("numbered25.mkv")));
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

}  // namespace
}  // namespace kestrel::test
