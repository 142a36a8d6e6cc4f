#include "composition/SharedInputs.h"

#include <gtest/gtest.h>
#include <kestrel/LMMediaSource.h>
#include <kestrel/LMMovieCompositionTrack.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/Ffprobe.h"
#include "tests/support/Fixture.h"

namespace kestrel::test {
namespace {

/// A file that counts how often it is opened again.
class CountedSource : public LMMediaSource {
 public:
  std::shared_ptr<LMMediaSource> copy() const override {
    ++copies;
    return LMMediaSource::copy();
  }

  mutable int copies = 0;
};

using Times = std::vector<int64_t>;

/// Tracks of one input: pictures are its stream 0, sound is its stream 1.
class SharedInputsTest : public testing::Test {
 protected:
  SharedInputsTest() {
    source_->setFullpath(fixture("av25.mp4").string());
    source_->open();
  }

  std::shared_ptr<LMMovieCompositionTrack> track(int stream, double position = 0) const {
    auto track = std::make_shared<LMMovieCompositionTrack>();
    track->setSource(source_);
    track->setTrack(stream);
    track->setPosition(position);
    return track;
  }

  /// The decoding times of the packets that ffprobe reads of a stream.
  static Times expected(int stream) {
    Times times;
    const auto probed = ffprobeJson(fixture("av25.mp4"),
                                    {"-show_packets", "-select_streams", std::to_string(stream)});
    for (const auto& packet : probed.at("packets"))
      times.push_back(packet.at("dts").get<int64_t>());
    return times;
  }

  /// Those of all packets that a track has left.
  static Times rest(SharedInputs& inputs, LMMovieCompositionTrack& track) {
    Times times;
    for (const PacketPtr packet = makePacket(); inputs.read(track, *packet);
         av_packet_unref(packet.get())) {
      EXPECT_EQ(packet->stream_index, track.track());
      times.push_back(packet->dts);
    }
    return times;
  }

  const std::shared_ptr<CountedSource> source_ = std::make_shared<CountedSource>();
};

TEST_F(SharedInputsTest, EachTrackGetsItsStreamWhicheverIsReadFirst) {
  for (const bool soundFirst : {false, true}) {
    const auto source = std::make_shared<CountedSource>();
    source->setFullpath(fixture("av25.mp4").string());
    source->open();
    const auto pictures = track(0);
    const auto sound = track(1);
    pictures->setSource(source);
    sound->setSource(source);
    SharedInputs inputs({pictures, sound});
    const auto& first = soundFirst ? sound : pictures;
    const auto& second = soundFirst ? pictures : sound;
    EXPECT_EQ(rest(inputs, *first), expected(first->track()));
    EXPECT_EQ(rest(inputs, *second), expected(second->track()));
    EXPECT_EQ(source->copies, 0);
  }
}

TEST_F(SharedInputsTest, TracksOfOneStreamEachGetAllOfIt) {
  const auto one = track(0);
  const auto other = track(0);
  SharedInputs inputs({one, other});
  EXPECT_EQ(rest(inputs, *one), expected(0));
  EXPECT_EQ(rest(inputs, *other), expected(0));
  EXPECT_EQ(source_->copies, 0);
}

// Else all packets between the two places would wait.
TEST_F(SharedInputsTest, ATrackThatLiesElsewhereReadsTheInputByItself) {
  const auto pictures = track(0);
  const auto sound = track(1, 3600);
  const auto more = track(0, 3600);
  SharedInputs inputs({pictures, sound, more});
  EXPECT_EQ(source_->copies, 1);
  EXPECT_EQ(rest(inputs, *sound), expected(1));
  EXPECT_EQ(rest(inputs, *pictures), expected(0));
  EXPECT_EQ(rest(inputs, *more), expected(0));
}

TEST_F(SharedInputsTest, ATrackIsFinishedWhenNothingIsLeftOfIt) {
  const auto pictures = track(0);
  const auto sound = track(1);
  SharedInputs inputs({pictures, sound});
  EXPECT_FALSE(pictures->finished());
  rest(inputs, *pictures);
  EXPECT_TRUE(pictures->finished());
  EXPECT_FALSE(sound->finished());  // its packets wait
  rest(inputs, *sound);
  EXPECT_TRUE(sound->finished());
}

TEST_F(SharedInputsTest, ATrackKnowsHowFarItWasRead) {
  const auto pictures = track(0);
  SharedInputs inputs({pictures, track(1)});
  const PacketPtr packet = makePacket();
  for (int i = 0; i < 10; ++i) {
    av_packet_unref(packet.get());
    ASSERT_TRUE(inputs.read(*pictures, *packet));
    EXPECT_DOUBLE_EQ(pictures->dts(),
                     static_cast<double>(packet->dts) * av_q2d(pictures->avstream()->time_base));
  }
}

TEST_F(SharedInputsTest, ATrackWithoutAnInputHasNoPackets) {
  const auto none = std::make_shared<LMMovieCompositionTrack>();
  const auto finished = track(0);
  finished->setFinished(true);
  SharedInputs inputs({none, finished});
  const PacketPtr packet = makePacket();
  for (const auto& each : {none, finished}) {
    EXPECT_FALSE(inputs.read(*each, *packet));
    EXPECT_TRUE(each->finished());
  }
}

}  // namespace
}  // namespace kestrel::test
