#include "convert/feed/StreamSound.h"

#include <gtest/gtest.h>
#include <kestrel/LMFFMedia.h>
#include <kestrel/LMFFMediaStream.h>
#include <kestrel/LMMediaSource.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include "tests/convert/PlacedSound.h"
#include "tests/support/Fixture.h"

namespace kestrel::test {
namespace {

class StreamSoundTest : public testing::Test {
 protected:
  /// The sound has a reader of its own.
  void open(const std::string& name) {
    use(LMMediaSource::mediaWithPath(fixture(name).string())->createMedias().back());
  }

  /// It shares one with the pictures.
  void openInOne(const std::string& name) {
    auto media = std::make_shared<LMFFMedia>();
    media->setSource(LMMediaSource::mediaWithPath(fixture(name).string()));
    use(std::move(media));
  }

  const std::shared_ptr<LMFFMediaStream>& stream() const { return stream_; }
  LMFFMedia& media() { return *media_; }
  StreamSound& sound() { return *sound_; }

  Sound readAll(int32_t request = StreamSound::kMostFrames) {
    Sound all;
    places_ = {0};
    Sound buffer(static_cast<size_t>(request) * 2);
    while (const int32_t count = sound().read(buffer.data(), request)) {
      all.insert(all.end(), buffer.begin(), buffer.begin() + ptrdiff_t{2} * count);
      places_.insert(static_cast<int64_t>(all.size() / 2));
    }
    return all;
  }

  /// Where reads began and ended, frames from the first.
  const std::set<int64_t>& places() const { return places_; }

 private:
  void use(std::shared_ptr<LMFFMedia> media) {
    media_ = std::move(media);
    media_->open();
    stream_ = media_->audioStream();
    media_->seek(0);
    sound_.emplace(media_, stream_);
  }

  std::shared_ptr<LMFFMedia> media_;
  std::shared_ptr<LMFFMediaStream> stream_;
  std::optional<StreamSound> sound_;
  std::set<int64_t> places_;
};

// The clock of the last counts milliseconds: each packet is said to begin some 20 samples earlier
// or later than it does.
TEST_F(StreamSoundTest, GivesEverySampleAsItIs) {
  for (const char* name : {"chirp.nut", "pcm-stereo-44100-s16.wav", "chirp.mkv"})
    for (const int32_t request : {512, 100, 1}) {
      SCOPED_TRACE(testing::Message() << name << " by " << request);
      open(name);
      ASSERT_EQ(firstDifference(readAll(request), decoded(fixture(name))), -1);
    }
}

TEST_F(StreamSoundTest, AHoleIsSilentAndReadsEndAtItsEdges) {
  const Sound expected = expectedSound(fixture("chirp-hole.nut"));
  const auto hole = std::search_n(expected.begin(), expected.end(), kRate, 0.0F);
  ASSERT_NE(hole, expected.end());
  const auto behind = std::find_if(hole, expected.end(), [](float sample) { return sample != 0; });
  for (const int32_t request : {512, 333}) {
    open("chirp-hole.nut");
    ASSERT_EQ(firstDifference(readAll(request), expected), -1);
    EXPECT_TRUE(places().contains((hole - expected.begin() + 1) / 2));
    EXPECT_TRUE(places().contains((behind - expected.begin()) / 2));
  }
}

TEST_F(StreamSoundTest, SoundThatBeginsLaterIsPrecededBySilence) {
  open("chirp-late.nut");
  EXPECT_EQ(firstDifference(readAll(), expectedSound(fixture("chirp-late.nut"))), -1);
}

TEST_F(StreamSoundTest, SilenceBeforeItCanBeLeftOut) {
  for (const auto& [name, frames] :
       {std::pair{"chirp-late.nut", 7 * kRate / 10}, {"chirp.nut", 0}}) {
    SCOPED_TRACE(name);
    open(name);
    EXPECT_EQ(sound().skipSilence(), frames);
    EXPECT_EQ(firstDifference(readAll(), decoded(fixture(name))), -1);
  }
}

// A host that was slow asks for what lies behind that which waits.
TEST_F(StreamSoundTest, SoundThatComesTooLateIsDropped) {
  const Sound expected = expectedSound(fixture("chirp.nut"));
  for (const int64_t asked : {800, 3000, 20000}) {
    open("chirp.nut");
    Sound buffer(2 * 100);
    ASSERT_EQ(sound().read(buffer.data(), 100), 100);
    stream()->setAudio_sync_frame(asked);
    const Sound rest(expected.begin() + 2 * asked, expected.end());
    EXPECT_EQ(firstDifference(readAll(), rest), -1) << asked;
  }
}

TEST_F(StreamSoundTest, AReadIsShort) {
  open("chirp.nut");
  Sound buffer(2 * 10000);
  EXPECT_EQ(sound().read(buffer.data(), 10000), 512);
}

TEST_F(StreamSoundTest, AtTheEndThereIsNothing) {
  open("chirp.nut");
  EXPECT_FALSE(sound().isAtEnd());
  readAll();
  EXPECT_TRUE(sound().isAtEnd());
  EXPECT_EQ(sound().waitingFrames(), 0);
  Sound buffer(2, 5);
  EXPECT_EQ(sound().read(buffer.data(), 1), 0);
  EXPECT_EQ(buffer, Sound(2, 5));
}

TEST_F(StreamSoundTest, AlignmentHasSoundWait) {
  open("chirp.nut");
  while (const int32_t waiting = sound().waitingFrames())
    ASSERT_EQ(sound().read(Sound(2 * 512).data(), std::min(waiting, 512)), std::min(waiting, 512));
  EXPECT_EQ(sound().align(100), 100);
  const int32_t waiting = sound().waitingFrames();
  EXPECT_GE(waiting, 100);
  EXPECT_EQ(sound().align(1 << 20), waiting);
}

// Else the pictures would be read, and be lost, for the sake of the sound behind them.
TEST_F(StreamSoundTest, BesidePicturesItReadsOnlyWhenItIsToldTo) {
  openInOne("numbered25.mkv");
  const Sound expected = decoded(fixture("numbered25.mkv"));
  const int32_t waiting = sound().waitingFrames();
  Sound begun(static_cast<size_t>(waiting) * 2);
  for (int32_t done = 0; done < waiting;)
    done += sound().read(begun.data() + ptrdiff_t{2} * done, waiting - done);
  ASSERT_LT(begun.size(), expected.size());
  EXPECT_EQ(firstDifference(begun, Sound(expected.begin(), expected.begin() + 2 * waiting)), -1);
  sound().align(512);
  EXPECT_EQ(sound().waitingFrames(), 0);
  sound().setReadsAlone(true);
  EXPECT_EQ(firstDifference(readAll(), Sound(expected.begin() + 2 * waiting, expected.end())), -1);
}

}  // namespace
}  // namespace kestrel::test
