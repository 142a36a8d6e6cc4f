#include "convert/feed/Readers.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <kestrel/LMFFAudioResample.h>
#include <kestrel/LMFFMedia.h>
#include <kestrel/LMFFMediaStream.h>
#include <kestrel/LMMediaSource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support/FileBytes.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

using Kind = StreamInfo::Kind;
using MediaList = LMFFMovie::MediaList;

constexpr int64_t kMono = 4;    // the mask of the front centre
constexpr int64_t kStereo = 3;  // front left and right

std::shared_ptr<LMMediaSource> opened(const std::string& path) {
  auto source = LMMediaSource::mediaWithPath(path);
  source->open();
  return source;
}

PlannedStream stream(Kind kind, StreamAction action, std::vector<uint32_t> sources,
                     int64_t layout = kStereo) {
  PlannedStream planned{.kind = kind, .action = action, .sources = std::move(sources)};
  planned.sound.sampleRate = 32000;
  planned.sound.channelLayout = layout;
  return planned;
}

PlannedStream pictures(StreamAction action) { return stream(Kind::kVideo, action, {0}); }
PlannedStream sound(StreamAction action, uint32_t index, int64_t layout = kStereo) {
  return stream(Kind::kAudio, action, {index}, layout);
}

MediaList readersOf(const std::string& path, std::vector<PlannedStream> streams) {
  ConversionPlan plan;
  plan.streams = std::move(streams);
  return openReaders(opened(path), plan);
}

/// Of "av-tracks.mkv": pictures, sound, sound, text.
std::string tracks() { return fixture("av-tracks.mkv").string(); }

constexpr auto kEncode = StreamAction::kEncode;
constexpr auto kCopy = StreamAction::kCopy;

/// Which streams each media reads.
std::vector<IndexSet> chosen(const MediaList& medias) {
  std::vector<IndexSet> all;
  for (const auto& media : medias) all.push_back(media->selectStreams().value_or(IndexSet()));
  return all;
}

TEST(Readers, SoundIsReadForItselfUnlessAllPassesThrough) {
  const auto text = stream(Kind::kSubtitle, kCopy, {3});
  using Sets = std::vector<IndexSet>;
  EXPECT_EQ(chosen(readersOf(tracks(), {pictures(kEncode), sound(kEncode, 1), sound(kEncode, 2)})),
            (Sets{{0}, {1, 2}}));
  EXPECT_EQ(chosen(readersOf(tracks(), {pictures(kEncode), sound(kCopy, 1), text})),
            (Sets{{0, 3}, {1}}));
  EXPECT_EQ(chosen(readersOf(tracks(), {pictures(kCopy), sound(kEncode, 1), text})),
            (Sets{{0, 3}, {1}}));
  EXPECT_EQ(
      chosen(readersOf(tracks(), {pictures(kCopy), sound(kCopy, 1), sound(kEncode, 2), text})),
      (Sets{{0, 1, 3}, {2}}));
  EXPECT_EQ(chosen(readersOf(tracks(), {pictures(kCopy), sound(kCopy, 1), text})),
            (Sets{{0, 1, 3}}));
  // Without pictures nobody waits.
  EXPECT_EQ(chosen(readersOf(tracks(), {sound(kEncode, 1), sound(kCopy, 2), text})),
            (Sets{{1, 2, 3}}));
}

TEST(Readers, AMixTakesAllItsSources) {
  const MediaList medias =
      readersOf(tracks(), {pictures(kEncode), stream(Kind::kAudio, kEncode, {1, 2})});
  ASSERT_EQ(medias.size(), 2U);
  EXPECT_EQ(readerOf(medias, 0).media, medias[0]);
  for (const uint32_t index : {1U, 2U}) {
    const ReadStream read = readerOf(medias, index);
    EXPECT_EQ(read.media, medias[1]);
    ASSERT_TRUE(read.stream);
    EXPECT_EQ(read.stream->audioOutputFormat().sample_rate, 32000);
  }
}

TEST(Readers, WhatIsLeftOutIsNotRead) {
  const MediaList medias =
      readersOf(tracks(), {pictures(kEncode), sound(StreamAction::kNone, 1),
                           stream(Kind::kSubtitle, StreamAction::kBurnIn, {3})});
  for (const uint32_t index : {1U, 2U, 3U, 9U}) {
    EXPECT_FALSE(readerOf(medias, index).media) << index;
    EXPECT_FALSE(readerOf(medias, index).stream) << index;
  }
}

TEST(Readers, ACoverIsNoStreamOfPackets) {
  auto cover = stream(Kind::kVideo, kCopy, {1});
  cover.isCover = true;
  const MediaList medias =
      readersOf(fixture("cover.m4a").string(), {sound(kCopy, 0), std::move(cover)});
  EXPECT_TRUE(readerOf(medias, 0).stream);
  EXPECT_FALSE(readerOf(medias, 1).stream);
}

TEST(Readers, CopiedStreamsAndTextKeepTheirPackets) {
  const MediaList medias = readersOf(tracks(), {pictures(kCopy), sound(kCopy, 1), sound(kEncode, 2),
                                                stream(Kind::kSubtitle, kEncode, {3})});
  for (const auto& [index, isCopied] : {std::pair{0U, true}, {1U, true}, {2U, false}, {3U, true}}) {
    const ReadStream read = readerOf(medias, index);
    ASSERT_TRUE(read.stream) << index;
    EXPECT_EQ(read.stream->isCopied(), isCopied) << index;
  }
}

TEST(Readers, SoundIsResampledPreciselyAsPlanned) {
  const MediaList medias = readersOf(
      tracks(), {pictures(kEncode), sound(kEncode, 1, kStereo), sound(kEncode, 2, kMono)});
  for (const auto& [index, layout] : {std::pair{1U, kStereo}, {2U, kMono}}) {
    const ReadStream read = readerOf(medias, index);
    ASSERT_TRUE(read.stream);
    const auto resample = read.stream->resample();
    EXPECT_EQ(resample->outFormat(), (LMFFAudioFormat{lm_get_default_sample_fmt(), layout, 32000}));
    EXPECT_TRUE(resample->isPrecise());
    EXPECT_TRUE(resample->keepsLevel());
  }
}

TEST(Readers, WhatCanBeReadOnceHasOneReader) {
  const TempDir folder;
  const std::string path = (folder / "pipe.mp4").string();
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  // Its index lies at the end: once it is open, all of it has been read.
  const auto bytes = readBytes(fixture("av25.mp4"));
  std::jthread writer([&] {
    const int file = open(path.c_str(), O_WRONLY);
    for (size_t done = 0; done < bytes.size();) {
      const ssize_t count = write(file, bytes.data() + done, bytes.size() - done);
      if (count <= 0) break;
      done += static_cast<size_t>(count);
    }
    close(file);
  });
  const MediaList medias = readersOf(path, {pictures(kEncode), sound(kEncode, 1)});
  EXPECT_EQ(chosen(medias), (std::vector<IndexSet>{{0, 1}}));
  EXPECT_EQ(readerOf(medias, 0).media, readerOf(medias, 1).media);
  ASSERT_TRUE(readerOf(medias, 1).stream);
  EXPECT_EQ(readerOf(medias, 1).stream->audioOutputFormat().sample_rate, 32000);
}

}  // namespace
}  // namespace kestrel::test
