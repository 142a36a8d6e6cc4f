#include <gtest/gtest.h>

#include <bit>
#include <cstring>

#include "tests/media/HandMade.h"

namespace kestrel::test {
namespace {

/// Bits, the highest of each byte first.
class BitWriter {
 public:
  BitWriter& put(uint32_t value, int count) {
    for (int bit = count - 1; bit >= 0; --bit) {
      if (used_++ % 8 == 0) bytes_.push_back(0);
      bytes_.back() |= static_cast<uint8_t>((value >> bit & 1) << ((8 - used_ % 8) % 8));
    }
    return *this;
  }

  /// A number as its bits behind the highest of value + 1, each behind a 0, and a 1 at the end.
  BitWriter& number(uint32_t value) {
    for (int bit = std::bit_width(value + 1) - 2; bit >= 0; --bit)
      put(0, 1).put((value + 1) >> bit & 1, 1);
    return put(1, 1);
  }

  const std::vector<uint8_t>& bytes() const { return bytes_; }

 private:
  std::vector<uint8_t> bytes_;
  int used_ = 0;
};

/// What a Sorenson 3 track says of itself: 16 x 16 pixels, pictures that come one behind.
std::vector<uint8_t> sorensonHeader() {
  BitWriter bits;
  bits.put(7, 3).put(16, 12).put(16, 12);  // a size of its own
  bits.put(0, 2).put(0, 4);                // motion in whole pixels
  bits.put(0, 1).put(0, 1).put(0, 1).put(0, 1);
  std::vector<uint8_t> header{'S', 'E', 'Q', 'H',
                              0,   0,   0,   static_cast<uint8_t>(bits.bytes().size())};
  header.insert(header.end(), bits.bytes().begin(), bits.bytes().end());
  header.resize(header.size() + 8);
  return header;
}

/// A key picture of one grey: a block whose only coefficient is `level`, 1 to 6, above the middle.
std::vector<uint8_t> sorensonPicture(int number, int level) {
  constexpr int kPlaces[] = {0,  1,  4, 8,
                             15, 16, 32};  // of levels without a run, in the code's table
  BitWriter slice;
  slice.number(2).put(0, 1);                               // a key picture
  slice.put(static_cast<uint32_t>(number), 8).put(31, 5);  // its number, the coarsest steps
  slice.put(0, 1).put(0, 1).put(0, 1).put(0, 2).put(0, 1);
  slice.number(1).number(0);  // one whole block, steps as they are
  slice.number(static_cast<uint32_t>(2 * kPlaces[level] - 1)).number(0);
  slice.put(0, 16);
  std::vector<uint8_t> picture{0x21, static_cast<uint8_t>(slice.bytes().size())};
  picture.insert(picture.end(), slice.bytes().begin(), slice.bytes().end());
  return picture;
}

/// The grey of that picture, by the codec's arithmetic.
int greyOf(int level) {
  constexpr int kStep = 141533;
  const int base = (13 * 13 * level * kStep + 0x80000) >> 20;
  return 128 + ((13 * 13 * 1538 * base + 0x80000) >> 20);
}

/// A decoder that gives each picture when the next one comes, and forgets none of them by itself.
class DelayedPictures : public testing::Test {
 protected:
  DelayedPictures() {
    AVStream* stream = container_.addStream(AVMEDIA_TYPE_VIDEO, AV_CODEC_ID_SVQ3);
    const auto header = sorensonHeader();
    AVCodecParameters& parameters = *stream->codecpar;
    parameters.width = parameters.height = 16;
    parameters.extradata =
        static_cast<uint8_t*>(av_mallocz(header.size() + AV_INPUT_BUFFER_PADDING_SIZE));
    parameters.extradata_size = static_cast<int>(header.size());
    std::memcpy(parameters.extradata, header.data(), header.size());
    stream_ = openedStream(stream);
  }

  void note() {
    const AVFrame& frame = *stream_->frame();
    shown_.emplace_back(frame.pts, frame.data[0][0]);
  }

  /// Feeds the pictures from `first` to before `end`, 40 ms each, of levels one more than their
  /// numbers.
  void decode(int first, int end) {
    for (int i = first; i < end; ++i)
      if (stream_->decodePacket(packetOf(sorensonPicture(i, i + 1), 40 * i, 40).get())) note();
  }

  void drain() {
    while (stream_->drain()) note();
  }

  using Shown = std::vector<std::pair<int64_t, int>>;  // time and grey
  static Shown pictures(int first, int end) {
    Shown list;
    for (int i = first; i < end; ++i) list.emplace_back(40 * i, greyOf(i + 1));
    return list;
  }

  HandMadeContainer container_;
  std::unique_ptr<LMFFMediaStream> stream_;
  Shown shown_;
};

TEST_F(DelayedPictures, AllComeOut) {
  decode(0, 5);
  drain();
  EXPECT_EQ(shown_, pictures(0, 5));
}

TEST_F(DelayedPictures, ThoseOfBeforeASeekDoNotComeAfterIt) {
  decode(0, 5);
  for (const int first : {1, 3, 0}) {
    stream_->seek(40 * first);
    shown_.clear();
    decode(first, 5);
    EXPECT_EQ(shown_, pictures(first, 3)) << first;
  }
}

TEST_F(DelayedPictures, AllComeOutAgainAfterTheEnd) {
  decode(0, 5);
  drain();
  for (const int first : {1, 3, 0}) {
    stream_->seek(40 * first);
    shown_.clear();
    decode(first, 5);
    drain();
    EXPECT_EQ(shown_, pictures(first, 5)) << first;
  }
}

}  // namespace
}  // namespace kestrel::test
