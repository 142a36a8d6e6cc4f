#include "support/Containers.h"

#include <gtest/gtest.h>

#include <string>

#include "support/FFmpegOwners.h"
#include "tests/support/Fixture.h"

namespace kestrel::test {
namespace {

const AVOutputFormat& written(const std::string& path) {
  return *av_guess_format(nullptr, path.c_str(), nullptr);
}

/// A file that is open to be read.
class Opened {
 public:
  explicit Opened(const std::string& name) {
    if (avformat_open_input(&input_, fixture(name).c_str(), nullptr, nullptr) >= 0)
      avformat_find_stream_info(input_, nullptr);
  }
  ~Opened() { avformat_close_input(&input_); }
  Opened(const Opened&) = delete;
  Opened& operator=(const Opened&) = delete;

  const AVFormatContext& operator*() const { return *input_; }

 private:
  AVFormatContext* input_ = nullptr;
};

TEST(Containers, Mpeg4AndItsKin) {
  for (const std::string path : {"a.mp4", "a.m4v", "a.m4a", "a.mov", "a.3gp", "a.3g2", "a.psp"})
    EXPECT_TRUE(isMpeg4(written(path))) << path;
  for (const std::string path : {"a.mkv", "a.avi", "a.flv", "a.ts"})
    EXPECT_FALSE(isMpeg4(written(path))) << path;
}

// AAC in them has no headers, units of H.264 their lengths.
TEST(Containers, ThatDescribeTheirStreams) {
  for (const std::string path : {"a.mp4", "a.mov", "a.mkv", "a.mka", "a.flv", "a.f4v", "a.ismv"})
    EXPECT_TRUE(describesStreams(written(path))) << path;
  for (const std::string path : {"a.ts", "a.avi", "a.mxf", "a.nut", "a.webm"})
    EXPECT_FALSE(describesStreams(written(path))) << path;
}

TEST(Containers, ThatTakeChaptersLast) {
  for (const std::string path : {"a.mp4", "a.mov", "a.m4a", "a.m4v", "a.mkv", "a.mka", "a.webm"})
    EXPECT_TRUE(takesLateChapters(written(path))) << path;
  for (const std::string path : {"a.ts", "a.avi", "a.3gp", "a.ogg", "a.mp3", "a.wav"})
    EXPECT_FALSE(takesLateChapters(written(path))) << path;
}

TEST(Containers, OfStudios) {
  for (const std::string path : {"a.mxf", "a.gxf", "a.dv"})
    EXPECT_TRUE(isOfStudios(written(path))) << path;
  for (const char* name : {"mxf_d10", "mxf_opatom"})
    EXPECT_TRUE(isOfStudios(*av_guess_format(name, nullptr, nullptr))) << name;
  for (const std::string path : {"a.mp4", "a.mkv", "a.avi", "a.ts"})
    EXPECT_FALSE(isOfStudios(written(path))) << path;
}

TEST(Containers, ThatPlaySoundInItsOrder) {
  for (const std::string path : {"a.wav", "a.w64"})
    EXPECT_TRUE(isRowOfPackets(written(path)) && placesSoundByOrder(written(path))) << path;
  for (const std::string path : {"a.aiff", "a.au", "a.caf"})
    EXPECT_TRUE(!isRowOfPackets(written(path)) && placesSoundByOrder(written(path))) << path;
  for (const std::string path : {"a.mp4", "a.mka", "a.ogg", "a.avi"})
    EXPECT_FALSE(placesSoundByOrder(written(path))) << path;
}

TEST(Containers, ThatHoldOneSound) {
  for (const std::string path : {"a.wav", "a.mp3", "a.flac", "a.aac", "a.ac3", "a.caf", "a.flv"})
    EXPECT_TRUE(holdsOneSound(written(path))) << path;
  for (const std::string path : {"a.mp4", "a.m4a", "a.mka", "a.ogg", "a.avi", "a.ts"})
    EXPECT_FALSE(holdsOneSound(written(path))) << path;
}

TEST(Containers, WhosePicturesMayShowAtAnyTime) {
  for (const std::string path : {"a.mp4", "a.mov", "a.mkv", "a.webm", "a.ts", "a.flv", "a.nut"})
    EXPECT_TRUE(holdsAnyTime(written(path))) << path;
  for (const std::string path : {"a.avi", "a.mxf", "a.mpg"})
    EXPECT_FALSE(holdsAnyTime(written(path))) << path;
}

TEST(Containers, WhoseMuxersProposeOldCodecs) {
  for (const std::string path : {"a.ts", "a.flv", "a.3gp", "a.3g2"})
    EXPECT_TRUE(outlivedItsCodecs(written(path))) << path;
  for (const std::string path : {"a.mp4", "a.avi", "a.mpg", "a.mkv"})
    EXPECT_FALSE(outlivedItsCodecs(written(path))) << path;
}

TEST(Containers, ThatAreRead) {
  const Opened mp4("av25.mp4");
  const Opened avi("mpeg4.avi");
  EXPECT_TRUE(isMpeg4(*mp4));
  EXPECT_FALSE(isMpeg4(*avi));
  EXPECT_TRUE(isAvi(*avi));
  EXPECT_FALSE(isAvi(*mp4));
  EXPECT_TRUE(tellsEndFromZero(*mp4));
  EXPECT_TRUE(tellsStreamEndsFromZero(*mp4));
  EXPECT_FALSE(tellsEndFromZero(*avi));
  for (const Opened* input : {&mp4, &avi}) {
    EXPECT_FALSE(isBroadcast(**input));
    EXPECT_FALSE(leavesTimesOut(**input));
  }
}

TEST(Containers, BroadcastsHaveAClock) {
  const Opened stream("av25.ts");
  EXPECT_TRUE(isBroadcast(*stream));
  EXPECT_TRUE(isTransportStream(*stream));
  EXPECT_TRUE(leavesTimesOut(*stream));
  EXPECT_FALSE(tellsEndFromZero(*stream));
}

TEST(Containers, NutTellsItsEndOnlyAsAWhole) {
  const Opened nut("chirp.nut");
  EXPECT_TRUE(tellsEndFromZero(*nut));
  EXPECT_FALSE(tellsStreamEndsFromZero(*nut));
}

TEST(Containers, TheEndByItsTagIsInMicroseconds) {
  AVFormatContext* context = avformat_alloc_context();
  const AVStream& plain = *avformat_new_stream(context, nullptr);
  AVStream& tagged = *avformat_new_stream(context, nullptr);
  av_dict_set(&tagged.metadata, "DURATION-eng", "00:01:02.500000000", 0);
  AVStream& wrong = *avformat_new_stream(context, nullptr);
  av_dict_set(&wrong.metadata, "DURATION", "long", 0);
  EXPECT_EQ(taggedEnd(plain), std::nullopt);
  EXPECT_EQ(taggedEnd(tagged), 62500000);
  EXPECT_EQ(taggedEnd(wrong), std::nullopt);
  avformat_free_context(context);
}

TEST(Containers, StreamsWithoutPacketsAreKnownWhereTheyAreCounted) {
  AVFormatContext* context = avformat_alloc_context();
  AVStream& first = *avformat_new_stream(context, nullptr);
  AVStream& second = *avformat_new_stream(context, nullptr);
  context->iformat = av_find_input_format("mov");
  EXPECT_FALSE(isKnownEmpty(second, *context));  // in fragments none is counted
  first.nb_frames = 5;
  EXPECT_FALSE(isKnownEmpty(first, *context));
  EXPECT_TRUE(isKnownEmpty(second, *context));
  context->iformat = av_find_input_format("matroska");
  EXPECT_FALSE(isKnownEmpty(second, *context));
  av_dict_set(&second.metadata, "NUMBER_OF_FRAMES-eng", "0", 0);
  EXPECT_TRUE(isKnownEmpty(second, *context));
  av_dict_set(&second.metadata, "NUMBER_OF_FRAMES-eng", "10", 0);
  EXPECT_FALSE(isKnownEmpty(second, *context));
  avformat_free_context(context);
}

}  // namespace
}  // namespace kestrel::test
