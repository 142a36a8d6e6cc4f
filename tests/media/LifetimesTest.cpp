#include <fcntl.h>
#include <gtest/gtest.h>
#include <kestrel/Image.h>
#include <kestrel/LMFFEffectVideoStream.h>
#include <kestrel/LMFFImage.h>
#include <kestrel/LMFFMovie.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <filesystem>
#include <functional>
#include <numeric>
#include <thread>

#include "tests/media/Media.h"
#include "tests/media/Sources.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

/// One of everything that hangs together in an opened movie. What has been released is null.
struct Parts {
  std::shared_ptr<LMMediaSource> source;
  std::shared_ptr<LMFFMovie> movie = std::make_shared<LMFFMovie>();
  std::vector<std::shared_ptr<LMFFMedia>> medias;
  std::vector<std::shared_ptr<LMFFMediaStream>> streams;
  std::shared_ptr<LMFFImage> picture;
  std::shared_ptr<const Image> image;

  explicit Parts(std::shared_ptr<LMMediaSource> input) : source(std::move(input)) {
    medias = source->createMedias();
    movie->openMedias(medias);
    movie->seek(0);
    movie->flushOperation();
    for (const auto& media : medias)
      for (const auto& stream : media->streams()) streams.push_back(stream);
    picture = LMFFImage::imageWithFrame(av_frame_clone(medias.at(0)->videoFrameAtTime(0)), true);
    image = movie->videoEffectStream()->currentCIImage();
  }

  static constexpr int kCount = 5;

  void release(int part) {
    switch (part) {
      case 0:
        return source.reset();
      case 1:
        return movie.reset();
      case 2:
        return medias.clear();
      case 3:
        return streams.clear();
      default:
        picture.reset();
        image.reset();
    }
  }

  void use() {
    if (source) useSource();
    if (movie) useMovie();
    for (const auto& media : medias) useMedia(*media);
    for (const auto& stream : streams) useStream(*stream);
    if (picture) {
      EXPECT_EQ(picture->frame()->width, 320);
      EXPECT_NE(pictureSum(*picture->frame()), 0U);
    }
    if (image) {
      EXPECT_GT(image->extent().size.width, 0);
    }
  }

  void useSource() const {
    EXPECT_EQ(source->codecs().size(), 2U);
    source->logFormatContext(source->formatContext());
    EXPECT_EQ(source->start_time(), 0);
  }

  void useMovie() const {
    EXPECT_EQ(movie->duration() / kSecond, 2);
    std::array<float, 2 * 441> samples{};
    movie->readSample(samples.data(), 441);
    movie->seek(kSecond);
    movie->flushOperation();
    EXPECT_TRUE(movie->hasVideo());
  }

  static void useMedia(LMFFMedia& media) {
    EXPECT_GT(media.duration(), 0);
    media.forwardNextPacket();
    media.seek(0);
    media.updateSelectStreams();
    EXPECT_EQ(media.streams().size(), 2U);
  }

  static void useStream(LMFFMediaStream& stream) {
    EXPECT_GT(stream.timebase().den, 1);
    EXPECT_GT(stream.framerate(), 0);
    stream.language();
    stream.duration();
    stream.seek(0);
    EXPECT_EQ(stream.stream()->codecpar->codec_id, stream.get_codec_id());
    const PacketPtr packet = makePacket();
    packet->stream_index = stream.stream()->index;
    stream.decodePacket(packet.get());
    if (stream.isOpen() && stream.media() == nullptr) {
      stream.close();
      stream.open();
      stream.drain();
    }
  }
};

void destroyInAllOrders(const std::function<std::shared_ptr<LMMediaSource>()>& makeSource) {
  std::array<int, Parts::kCount> order{};
  std::iota(order.begin(), order.end(), 0);
  do {
    SCOPED_TRACE(testing::PrintToString(order));
    Parts parts(makeSource());
    for (const int part : order) {
      parts.release(part);
      parts.use();
    }
  } while (std::ranges::next_permutation(order).found);
}

TEST(Lifetimes, EverythingMayGoInAnyOrder) {
  destroyInAllOrders([] { return sourceOf(fixture("av25.mp4")); });
}

TEST(Lifetimes, SoMayTheBytesInMemory) {
  const auto bytes = bytesOf(fixture("av25.mp4"));
  destroyInAllOrders([&] { return std::make_shared<MemorySource>(bytes); });
}

TEST(Lifetimes, AStreamWithoutItsMediaStandsForItself) {
  std::shared_ptr<LMFFMediaStream> stream;
  {
    const auto media = openedMedia(fixture("av25.mp4"));
    stream = media->videoStream();
    EXPECT_EQ(stream->media(), media.get());
  }
  EXPECT_EQ(stream->media(), nullptr);
  EXPECT_EQ(stream->stream()->codecpar->width, 320);
}

TEST(Lifetimes, AClosedSourceLeavesItsMediasWithoutInput) {
  const auto media = openedMedia(fixture("av25.mp4"));
  const auto stream = media->videoStream();
  ASSERT_TRUE(media->forwardStream(stream));
  media->source()->close();
  EXPECT_FALSE(media->isOpen());
  EXPECT_FALSE(media->forwardNextPacket());
  EXPECT_EQ(media->duration(), 0);
  media->seek(kSecond);
  media->videoFrameAtTime(kSecond);
  EXPECT_EQ(media->fileBitrate(), 0);
  EXPECT_EQ(stream->stream()->codecpar->width, 320);
}

TEST(Lifetimes, AClosedSourceIsOpenedAnewByItsMedia) {
  const auto media = openedMedia(fixture("av25.mp4"));
  while (media->forwardNextPacket()) {
  }
  media->source()->close();
  media->open();
  ASSERT_EQ(media->streams().size(), 2U);
  EXPECT_FALSE(media->isAtEnd());
  int pictures = 0;
  while (media->forwardStream(media->videoStream()))
    pictures += media->videoStream()->hasFrame() ? 1 : 0;
  EXPECT_EQ(pictures, 50);
}

TEST(Lifetimes, AMovieOutlivesItsSourcesDemuxer) {
  LMFFMovie movie;
  const auto source = sourceOf(fixture("av25.mp4"));
  movie.openMedias(source->createMedias());
  for (const auto& media : movie.medias()) media->source()->close();
  std::array<float, 2 * 441> samples{};
  EXPECT_TRUE(movie.readSample(samples.data(), 441));
  movie.seek(kSecond);
  movie.flushOperation();
  movie.videoEffectStream()->currentCIImage();
}

/// Closes sources, each after a few more packets, while another thread reads.
void closeWhileReading(const std::function<std::shared_ptr<LMMediaSource>()>& makeSource) {
  for (int packets = 0; packets < 20; ++packets) {
    LMFFMedia media;
    media.setSource(makeSource());
    media.open();
    std::atomic<int> read = 0;
    std::jthread reader([&] {
      while (media.forwardNextPacket()) ++read;
      media.seek(0);
      read = 1000;
    });
    while (read < packets) std::this_thread::yield();
    media.source()->close();
    reader.join();
    EXPECT_FALSE(media.isOpen());
  }
}

TEST(Lifetimes, AFileMayBeClosedWhileItIsRead) {
  closeWhileReading([] { return sourceOf(fixture("av25.mp4")); });
}

TEST(Lifetimes, BytesInMemoryMayBeClosedWhileTheyAreRead) {
  const auto bytes = bytesOf(fixture("av25.mp4"));
  closeWhileReading([&] { return std::make_shared<MemorySource>(bytes); });
}

TEST(Lifetimes, ClosingEndsAReadThatWaits) {
  const TempDir folder;
  const std::string path = (folder / "pipe.ts").string();
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  const auto bytes = bytesOf(fixture("av25.ts"));
  std::atomic<bool> isDone = false;
  // Everything but the end arrives, and then nothing for as long as the reader waits.
  std::jthread writer([&] {
    const int file = ::open(path.c_str(), O_WRONLY);
    size_t sent = 0;
    while (sent < bytes->size()) {
      const ssize_t count = ::write(file, bytes->data() + sent, bytes->size() - sent);
      if (count <= 0) break;
      sent += static_cast<size_t>(count);
    }
    isDone.wait(false);
    ::close(file);
  });
  const auto media = openedMedia(path);
  std::atomic<int> packets = 0;
  std::jthread reader([&] {
    while (media->forwardNextPacket()) {
      ++packets;
      packets.notify_all();
    }
  });
  packets.wait(0);
  media->source()->close();
  reader.join();
  isDone = true;
  isDone.notify_all();
  EXPECT_FALSE(media->isOpen());
}

}  // namespace
}  // namespace kestrel::test
