#include <gmock/gmock.h>
#include <kestrel/LMWavSource.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>

#include "tests/media/Media.h"

namespace kestrel::test {
namespace {

using testing::Each;
using testing::ElementsAre;

constexpr int64_t kDataSize = 3'810'240'000;
constexpr int64_t kFileSize = 3'810'240'056;

// The header, byte by byte: 3,810,240,000 is E31BA600 in hexadecimal.
const std::vector<uint8_t> kHeader{
    'R',  'I',  'F', 'F', 0,    0,    0,    0,     // size 0
    'W',  'A',  'V', 'E',                          //
    'f',  'm',  't', ' ', 16,   0,    0,    0,     //
    3,    0,    2,   0,                            // float, two channels
    0x44, 0xAC, 0,   0,   0x20, 0x62, 0x05, 0,     // 44100 Hz, 352800 bytes per second
    4,    0,    32,  0,                            // block of 4, 32 bits
    'f',  'a',  'c', 't', 4,    0,    0,    0,     //
    0,    0,    0,   0,                            //
    'd',  'a',  't', 'a', 0x00, 0xA6, 0x1B, 0xE3,  //
};

std::vector<uint8_t> readFrom(LMWavSource& source, int64_t offset, int32_t size) {
  std::vector<uint8_t> bytes(static_cast<size_t>(size), 0xEE);
  source.setRead_offset(offset);
  bytes.resize(static_cast<size_t>(std::max(source.read(bytes.data(), size), 0)));
  return bytes;
}

// The virtual file.

TEST(LMWavSource, IsThreeHoursLong) {
  const LMWavSource source;
  EXPECT_EQ(source.path(), "filename.wav");
  EXPECT_EQ(source.name(), "filename");
  EXPECT_EQ(source.headerSize(), 56);
  EXPECT_EQ(source.datasize(), kDataSize);
  EXPECT_EQ(source.datasize(), int64_t{10800} * 352800);
  EXPECT_EQ(source.filesize(), kFileSize);
  EXPECT_EQ(kHeader.size(), 56u);
}

TEST(LMWavSource, BeginsWithTheHeader) {
  LMWavSource source;
  EXPECT_EQ(readFrom(source, 0, 56), kHeader);
}

TEST(LMWavSource, ReadWithinTheHeaderBeginsThere) {
  LMWavSource source;
  const auto bytes = readFrom(source, 20, 10);
  EXPECT_EQ(bytes, std::vector<uint8_t>(kHeader.begin() + 20, kHeader.begin() + 30));
}

TEST(LMWavSource, EveryPieceOfTheHeaderIsItsPiece) {
  LMWavSource source;
  for (int32_t from = 0; from < 56; ++from) {
    for (int32_t size = 0; from + size <= 56; ++size) {
      ASSERT_EQ(readFrom(source, from, size),
                std::vector<uint8_t>(kHeader.begin() + from, kHeader.begin() + from + size));
    }
  }
}

TEST(LMWavSource, DataIsZero) {
  LMWavSource source;
  const auto bytes = readFrom(source, 0, 100);
  ASSERT_EQ(bytes.size(), 100u);
  EXPECT_EQ(std::vector<uint8_t>(bytes.begin(), bytes.begin() + 56), kHeader);
  EXPECT_THAT(std::vector<uint8_t>(bytes.begin() + 56, bytes.end()), Each(0));
  EXPECT_THAT(readFrom(source, 1'000'000'007, 4096), Each(0));
}

TEST(LMWavSource, ReadAtTheEndGivesNothing) {
  LMWavSource source;
  EXPECT_EQ(readFrom(source, kFileSize, 4096).size(), 0u);
  EXPECT_EQ(readFrom(source, kFileSize + 1, 4096).size(), 0u);
  EXPECT_EQ(readFrom(source, INT64_MAX, 4096).size(), 0u);
}

TEST(LMWavSource, ReadNearTheEndGivesWhatIsLeft) {
  LMWavSource source;
  EXPECT_EQ(readFrom(source, kFileSize - 10, 4096).size(), 10u);
}

TEST(LMWavSource, ReadBeforeTheStartGivesNothing) {
  LMWavSource source;
  EXPECT_EQ(readFrom(source, -1, 4096).size(), 0u);
  EXPECT_EQ(readFrom(source, INT64_MIN, 4096).size(), 0u);
}

TEST(LMWavSource, ReadDoesNotMoveTheOffset) {
  LMWavSource source;
  readFrom(source, 20, 100);
  EXPECT_EQ(source.read_offset(), 20);
}

TEST(LMWavSource, CopyIsOneToo) {
  const LMWavSource source;
  const auto copy = std::dynamic_pointer_cast<LMWavSource>(source.copy());
  ASSERT_TRUE(copy);
  EXPECT_EQ(copy->filesize(), kFileSize);
}

// What a subclass is asked for.

struct Request {
  int64_t offset;
  int32_t size;
  bool operator==(const Request&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Request& request) {
  return out << request.size << " at " << request.offset;
}

class NotingSource : public LMWavSource {
 public:
  using LMWavSource::readData;

  int32_t readData(uint8_t* data, int64_t offset, int32_t size) override {
    requests.push_back({offset, size});
    std::memset(data, 0x77, static_cast<size_t>(size));
    return size;
  }

  std::vector<Request> requests;
};

TEST(LMWavSourceData, ReadFromTheStartAsksForDataAtZero) {
  NotingSource source;
  const auto bytes = readFrom(source, 0, 100);
  EXPECT_THAT(source.requests, ElementsAre(Request{0, 44}));
  ASSERT_EQ(bytes.size(), 100u);
  EXPECT_EQ(bytes[55], 0xE3);
  EXPECT_EQ(bytes[56], 0x77);
}

TEST(LMWavSourceData, ReadFromWithinTheHeaderAsksAtThatPlace) {
  NotingSource source;
  EXPECT_EQ(readFrom(source, 20, 100).size(), 100u);
  EXPECT_THAT(source.requests, ElementsAre(Request{20, 64}));
}

TEST(LMWavSourceData, LaterReadsAskAtTheirPlaceInTheFile) {
  NotingSource source;
  readFrom(source, 56, 8);
  readFrom(source, 1'000'000, 4096);
  EXPECT_THAT(source.requests, ElementsAre(Request{56, 8}, Request{1'000'000, 4096}));
}

TEST(LMWavSourceData, ReadsInARowAskWithoutAGap) {
  NotingSource source;
  std::vector<uint8_t> buffer(1000);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(source.read_packet(buffer.data(), 1000), 1000);
  EXPECT_THAT(source.requests,
              ElementsAre(Request{0, 944}, Request{1000, 1000}, Request{2000, 1000}));
}

TEST(LMWavSourceData, RequestIsClampedToTheFilesEnd) {
  NotingSource source;
  source.setRead_offset(kFileSize - 10);
  std::vector<uint8_t> buffer(100);
  EXPECT_EQ(source.readData(buffer.data(), 100), 10);
  source.setRead_offset(kFileSize + 10);
  EXPECT_EQ(source.readData(buffer.data(), 100), 0);
  EXPECT_THAT(source.requests,
              ElementsAre(Request{kFileSize - 10, 10}, Request{kFileSize + 10, 0}));
}

TEST(LMWavSourceData, ShorterAnswerIsPassedOn) {
  class Short : public LMWavSource {
    int32_t readData(uint8_t* /*data*/, int64_t /*offset*/, int32_t size) override {
      return size / 2;
    }
  };
  Short source;
  EXPECT_EQ(readFrom(source, 0, 100).size(), 56u + 22);
  EXPECT_EQ(readFrom(source, 100, 100).size(), 50u);
}

// Decoding it.

TEST(LMWavSourceSound, IsStereoFloatAndLastsThreeHours) {
  const auto medias = std::make_shared<LMWavSource>()->createMedias();
  ASSERT_EQ(medias.size(), 1u);
  EXPECT_EQ(medias[0]->audioStream()->audioFormat(), lm_get_default_audio_format());
  EXPECT_EQ(medias[0]->duration(), 10'800 * kSecond);
}

TEST(LMWavSourceSound, IsSilence) {
  const auto media = std::make_shared<LMWavSource>()->createMedias().at(0);
  std::vector<float> sound(20'000, 0.0F);
  for (const int64_t second : {0, 5000, 10'799}) {
    media->seek(second * kSecond);
    EXPECT_TRUE(media->readSample(sound.data(), 10'000));
    EXPECT_THAT(sound, Each(0.0F)) << second;
    EXPECT_EQ(media->audioStream()->audio_sync_frame(), second * 44100 + 10'000);
  }
}

/// Two tones: the sample at index i of a channel is a function of i alone.
class ToneSource : public LMWavSource {
 public:
  using LMWavSource::readData;

  static float sampleAt(int channel, int64_t index) {
    return static_cast<float>(
        0.5 * std::sin(2 * M_PI * (441.0 * (channel + 1)) * static_cast<double>(index) / 44100));
  }

  std::shared_ptr<LMMediaSource> copy() const override { return std::make_shared<ToneSource>(); }

  int32_t readData(uint8_t* data, int64_t offset, int32_t size) override {
    const int64_t first = std::max<int64_t>(offset - headerSize(), 0);
    for (int32_t i = 0; i < size; ++i) {
      const int64_t position = first + i;
      const float sample = sampleAt(static_cast<int>(position / 4 % 2), position / 8);
      data[i] = std::bit_cast<std::array<uint8_t, 4>>(sample)[position % 4];
    }
    return size;
  }
};

TEST(LMWavSourceSound, IsWhatASubclassSupplies) {
  const auto media = std::make_shared<ToneSource>()->createMedias().at(0);
  int64_t index = 0;
  for (int block = 0; block < 60; ++block) {
    auto sound = silence(1000);
    media->readSample(sound.data(), 1000);
    for (size_t i = 0; i < sound.size(); i += 2, ++index) {
      ASSERT_EQ(sound[i], ToneSource::sampleAt(0, index)) << index;
      ASSERT_EQ(sound[i + 1], ToneSource::sampleAt(1, index)) << index;
    }
  }
}

TEST(LMWavSourceSound, IsWhatASubclassSuppliesAfterASeek) {
  const auto media = std::make_shared<ToneSource>()->createMedias().at(0);
  for (const int64_t second : {1, 7200, 0}) {
    media->seek(second * kSecond);
    auto sound = silence(3000);
    media->readSample(sound.data(), 3000);
    for (size_t i = 0; i < sound.size(); ++i)
      ASSERT_EQ(sound[i], ToneSource::sampleAt(static_cast<int>(i % 2),
                                               second * 44100 + static_cast<int64_t>(i / 2)))
          << second << " s + " << i;
  }
}

}  // namespace
}  // namespace kestrel::test
