#include <gmock/gmock.h>
#include <kestrel/LMFFImage.h>
#include <kestrel/LMFFMovie.h>
#include <kestrel/LMFFMovieImageProvider.h>
#include <kestrel/OperationQueue.h>

#include <semaphore>
#include <stdexcept>
#include <thread>

#include "tests/media/Media.h"

namespace kestrel::test {
namespace {

class LMFFMoviePictures : public testing::Test {
 protected:
  /// The picture that the movie decodes for a time, in the stream's time base.
  int64_t pictureAt(int64_t time) {
    int64_t pts = AV_NOPTS_VALUE;
    movie_.decodeImageAtTime(time, true, [&](const std::shared_ptr<LMFFImage>& image) {
      if (image && image->getFrame() && image->getFrame()->data[0]) pts = image->getFrame()->pts;
    });
    return pts;
  }

  LMFFMovie movie_;
};

// Work on the queue.

TEST_F(LMFFMoviePictures, WorkRunsOnTheQueueAndIsWaitedFor) {
  bool wasOnQueue = false;
  movie_.decodeImage([&] { wasOnQueue = movie_.decodeQueue()->isCurrentQueue(); }, true);
  EXPECT_TRUE(wasOnQueue);
}

TEST_F(LMFFMoviePictures, WorkThatIsNotWaitedForRunsLater) {
  std::binary_semaphore hold{0};
  bool done = false;
  movie_.decodeImage(
      [&] {
        hold.acquire();
        done = true;
      },
      false);
  EXPECT_FALSE(done);
  hold.release();
  movie_.flushOperation();
  EXPECT_TRUE(done);
}

TEST_F(LMFFMoviePictures, WorkFromTheQueueRunsAtOnce) {
  std::vector<int> order;
  movie_.decodeImage(
      [&] {
        order.push_back(1);
        movie_.decodeImage([&] { order.push_back(2); }, true);
        order.push_back(3);
        movie_.decodeImage([&] { order.push_back(4); }, false);
        order.push_back(5);
      },
      true);
  EXPECT_THAT(order, testing::ElementsAre(1, 2, 3, 4, 5));
}

TEST_F(LMFFMoviePictures, WorkWaitsForWhatWasQueuedBefore) {
  std::vector<int> order;
  for (int i = 0; i < 5; ++i) movie_.decodeImage([&order, i] { order.push_back(i); }, i == 4);
  EXPECT_THAT(order, testing::ElementsAre(0, 1, 2, 3, 4));
}

TEST_F(LMFFMoviePictures, SeveralThreadsTakeTurns) {
  int inside = 0;  // unguarded on purpose: the queue is the guard
  std::vector<std::jthread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int k = 0; k < 50; ++k) movie_.decodeImage([&inside] { ++inside; }, true);
    });
  }
  threads.clear();
  EXPECT_EQ(inside, 200);
}

// Pictures by time.

TEST_F(LMFFMoviePictures, PictureIsTheOneOfItsTime) {
  movie_.openMedias(sourceOf(fixture("av25.mp4"))->createMedias());
  EXPECT_EQ(pictureAt(milliseconds(20)), 0);
  EXPECT_EQ(pictureAt(milliseconds(220)), 5 * 512);
}

TEST_F(LMFFMoviePictures, TimeIsTheMovies) {
  const auto media = videoMediaOf(fixture("av25.mp4"));
  media->setMovie_position(3 * kSecond);
  movie_.openMedias({media});
  movie_.seek(3 * kSecond);
  EXPECT_EQ(pictureAt(3 * kSecond + milliseconds(220)), 5 * 512);
}

TEST_F(LMFFMoviePictures, FirstRequestPositionsTheMediasAtTheClock) {
  movie_.openMedias(sourceOf(fixture("av25.mp4"))->createMedias());
  movie_.update_current_time_to(kSecond);
  EXPECT_EQ(pictureAt(kSecond + milliseconds(20)), 25 * 512);
  EXPECT_TRUE(movie_.medias()[0]->isCurrentSynced());
}

TEST_F(LMFFMoviePictures, PictureIsBorrowedFromItsStream) {
  const auto media = videoMediaOf(fixture("av25.mp4"));
  movie_.openMedias({media});
  movie_.decodeImageAtTime(0, true, [&](const std::shared_ptr<LMFFImage>& image) {
    ASSERT_TRUE(image);
    EXPECT_FALSE(image->isPacket());
    EXPECT_FALSE(image->isOwned());
    EXPECT_EQ(image->getFrame(), media->videoStream()->frame());
  });
}

TEST_F(LMFFMoviePictures, WithoutDecodingItIsTheNextPacketWhateverTheTime) {
  movie_.openMedias({videoMediaOf(fixture("video-only.mp4"))});
  movie_.setCopy_video_stream(true);
  movie_.seek(0);
  std::vector<int64_t> decodingTimes;
  for (int i = 0; i < 200; ++i) {
    bool isLast = false;
    movie_.decodeImageAtTime(kSecond, false, [&](const std::shared_ptr<LMFFImage>& image) {
      isLast = !image;
      if (!image) return;
      EXPECT_TRUE(image->isPacket());
      decodingTimes.push_back(image->getPacket()->dts);
    });
    if (isLast) break;
  }
  ASSERT_EQ(decodingTimes.size(), 50u);
  for (size_t i = 1; i < decodingTimes.size(); ++i)
    EXPECT_EQ(decodingTimes[i] - decodingTimes[i - 1], 512);
}

TEST_F(LMFFMoviePictures, WithoutACurrentVideoMediaTheActionGetsNone) {
  int calls = 0;
  const auto expectNone = [&calls](const std::shared_ptr<LMFFImage>& image) {
    ++calls;
    EXPECT_EQ(image, nullptr);
  };
  movie_.decodeImageAtTime(0, true, expectNone);
  movie_.openMedias({openedMedia(fixture("audio-only.m4a"))});
  movie_.decodeImageAtTime(0, true, expectNone);
  movie_.decodeImageAtTime(0, false, expectNone);
  movie_.openMedias({videoMediaOf(fixture("av25.mp4"))});
  movie_.update_current_time_to(60 * kSecond);
  movie_.decodeImageAtTime(60 * kSecond, true, expectNone);
  EXPECT_EQ(calls, 4);
}

TEST_F(LMFFMoviePictures, MayBeAskedForFromTheQueue) {
  movie_.openMedias(sourceOf(fixture("av25.mp4"))->createMedias());
  int64_t pts = AV_NOPTS_VALUE;
  movie_.decodeImage([&] { pts = pictureAt(milliseconds(100)); }, true);
  EXPECT_EQ(pts, 2 * 512);
}

// A conversion in small: sound drives the clock, and pictures are fetched for it.

TEST_F(LMFFMoviePictures, FollowTheSoundFromStartToEnd) {
  movie_.setExportMovie(true);
  movie_.openMedias(sourceOf(fixture("av25.mp4"))->createMedias());
  movie_.seek(0);
  movie_.flushOperation();
  std::vector<float> sound(2 * 1764);  // one picture's time
  for (int picture = 0; picture < 50; ++picture) {
    // In the middle of the picture's time, beyond doubt.
    EXPECT_EQ(pictureAt(movie_.currentTime() + milliseconds(20)), picture * 512);
    movie_.readSample(sound.data(), 1764);
  }
}

// While other threads look on.

TEST_F(LMFFMoviePictures, ClockAndListsMayBeReadWhileTheMovieWorks) {
  movie_.openMedias(sourceOf(fixture("av25.mp4"))->createMedias());
  std::jthread host([this](const std::stop_token& stop) {
    while (!stop.stop_requested()) {
      EXPECT_LT(movie_.currentTime(), 5 * kSecond);
      EXPECT_LE(movie_.medias().size(), 2u);
      EXPECT_GT(movie_.duration(), 0);
      movie_.subtitle();
      movie_.setVolume(0.5);
    }
  });
  for (int i = 0; i < 10; ++i) {
    movie_.seek(i * milliseconds(150));
    movie_.decodeMoreAudioDataToAudioOutput();
    pictureAt(i * milliseconds(150) + milliseconds(20));
  }
  movie_.flushOperation();
}

TEST_F(LMFFMoviePictures, MovieMayGoWhileWorkIsQueued) {
  auto movie = std::make_unique<LMFFMovie>();
  movie->openMedias(sourceOf(fixture("av25.mp4"))->createMedias());
  for (int i = 0; i < 10; ++i) {
    movie->seek(i * milliseconds(100));
    movie->decodeMoreAudioDataToAudioOutput();
  }
  movie.reset();
}

TEST_F(LMFFMoviePictures, SeveralMoviesWorkAtOnce) {
  std::vector<std::jthread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([] {
      LMFFMovie movie;
      movie.openMedias(sourceOf(fixture("av25.mp4"))->createMedias());
      for (const int picture : {40, 3, 20}) {
        const int64_t time = milliseconds(picture * 40 + 20);
        movie.seek(time);
        movie.decodeImageAtTime(time, true, [&](const std::shared_ptr<LMFFImage>& image) {
          EXPECT_EQ(image->getFrame()->pts, picture * 512);
        });
      }
    });
  }
}

// What a host's own code throws.

TEST(LMFFMovieException, ArrivesAtTheHostThatWaits) {
  LMFFMovie movie;
  const auto fail = [] { throw std::runtime_error("the host's own"); };
  EXPECT_THROW(movie.decodeImage(fail, true), std::runtime_error);
  movie.decodeImage(fail, false);
  movie.flushOperation();
  bool isGoingOn = false;
  movie.decodeImage([&] { isGoingOn = true; }, true);
  EXPECT_TRUE(isGoingOn);
}

TEST(LMFFMovieException, OfWorkWithinWorkGoesThroughBoth) {
  LMFFMovie movie;
  bool isCaught = false;
  movie.decodeImage(
      [&] {
        try {
          movie.decodeImage([] { throw 7; }, true);
        } catch (int) {
          isCaught = true;
        }
      },
      true);
  EXPECT_TRUE(isCaught);
  EXPECT_THROW(movie.decodeImage([&] { movie.decodeImage([] { throw 7; }, true); }, true), int);
}

TEST(LMFFMovieException, OfAnActionOrAProviderArrivesAndThePicturesGoOn) {
  LMFFMovie movie;
  movie.openMedias({videoMediaOf(fixture("video-only.mp4"))});
  const auto action = [](const std::shared_ptr<LMFFImage>&) { throw std::runtime_error("full"); };
  EXPECT_THROW(movie.decodeImageAtTime(0, true, action), std::runtime_error);
  const auto provider = std::make_shared<LMFFMovieImageProvider>();
  provider->movieMediaImage = [](LMFFMovie&, const std::shared_ptr<const Image>&) {
    throw std::runtime_error("full");
  };
  EXPECT_THROW(movie.decodeImageAtTime(0, provider), std::runtime_error);
  movie.decodeImageAtTime(0, provider, false);
  movie.flushOperation();
  int64_t time = -1;
  movie.decodeImageAtTime(milliseconds(60), true,
                          [&](const auto& image) { time = image->getFrame()->pts; });
  EXPECT_EQ(time, 512);
}

}  // namespace
}  // namespace kestrel::test
