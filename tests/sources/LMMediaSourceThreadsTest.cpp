#include <gtest/gtest.h>

#include <atomic>
#include <barrier>
#include <thread>

#include "tests/media/Media.h"
#include "tests/media/Sources.h"

namespace kestrel::test {
namespace {

constexpr int kThreads = 8;

/// Runs `work` on eight threads that begin together.
template <typename Work>
void onEightThreads(Work work) {
  std::barrier start(kThreads);
  std::vector<std::jthread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&start, &work, i] {
      start.arrive_and_wait();
      work(i);
    });
  }
}

TEST(LMMediaSourceThreads, EachOpensItsOwnCopy) {
  const auto source = sourceOf(fixture("av25.mp4"));
  std::atomic<int> opened = 0;
  onEightThreads([&](int) {
    const auto copy = source->copy();
    copy->open();
    if (copy->isOpen() && copy->formatContext()->nb_streams == 2) ++opened;
  });
  EXPECT_EQ(opened, kThreads);
}

TEST(LMMediaSourceThreads, EachDecodesItsOwnMedias) {
  const auto bytes = bytesOf(fixture("av25.mp4"));
  std::atomic<int> pictures = 0;
  std::atomic<int64_t> samples = 0;
  onEightThreads([&](int thread) {
    const auto source =
        thread % 2 == 0
            ? sourceOf(fixture("av25.mp4"))
            : std::static_pointer_cast<LMMediaSource>(std::make_shared<MemorySource>(bytes));
    const auto medias = source->createMedias();
    const auto video = medias.at(0)->videoStream();
    while (medias[0]->forwardStream(video)) pictures += video->hasFrame() ? 1 : 0;
    while (medias.at(1)->forwardNextPacket()) {
    }
    samples += medias[1]->audioStream()->outputSamples();
  });
  EXPECT_EQ(pictures, kThreads * 50);
  EXPECT_EQ(samples, kThreads * 89088);  // 87 packets of AAC
}

TEST(LMMediaSourceThreads, EachOpensAndClosesDecoders) {
  onEightThreads([](int) {
    const auto media = openedMedia(fixture("av-tracks.mkv"));
    for (int i = 0; i < 20; ++i) {
      media->setSelectStreams(IndexSet{static_cast<uint32_t>(i % 4)});
      media->updateSelectStreams();
      EXPECT_EQ(media->audios().size() + media->videos().size() + media->subtitles().size(), 1u);
    }
  });
}

TEST(LMMediaSourceThreads, FactsMayBeAskedWhileAnotherThreadOpens) {
  const auto media = std::make_shared<LMFFMedia>();
  media->setSource(sourceOf(fixture("av25.mp4")));
  std::atomic<bool> done = false;
  std::jthread asker([&] {
    while (!done) {
      EXPECT_LE(media->streams().size(), 2u);
      EXPECT_NE(media->source(), nullptr);
      EXPECT_NE(media->source()->fullpath(), "");
      EXPECT_FALSE(media->source()->lastError());
    }
  });
  for (int i = 0; i < 5; ++i) {
    media->setStreams({});
    media->open();
  }
  done = true;
}

}  // namespace
}  // namespace kestrel::test
