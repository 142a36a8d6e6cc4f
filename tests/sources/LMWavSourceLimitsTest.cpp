#include <gtest/gtest.h>
#include <kestrel/LMWavSource.h>

#include <cstdint>
#include <vector>

namespace kestrel {
namespace {

/// A data region of any size.
class SizedSource : public LMWavSource {
 public:
  explicit SizedSource(int64_t datasize) : datasize_(datasize) {}
  int64_t datasize() const override { return datasize_; }

 private:
  int64_t datasize_;
};

TEST(LMWavSourceLimits, PathStaysWhateverTheFullpathIs) {
  LMWavSource source;
  source.setFullpath("other.mp3");
  EXPECT_EQ(source.path(), "filename.wav");
}

TEST(LMWavSourceLimits, HeaderTruncatesTheDataSizeTo32Bits) {
  SizedSource source(0x501020304);
  EXPECT_EQ(source.filesize(), 0x501020304 + 56);
  std::vector<uint8_t> bytes(4);
  source.setRead_offset(52);
  EXPECT_EQ(source.read(bytes.data(), 4), 4);
  EXPECT_EQ(bytes, (std::vector<uint8_t>{4, 3, 2, 1}));
}

TEST(LMWavSourceLimits, WithoutDataThereIsTheHeaderAlone) {
  SizedSource source(0);
  std::vector<uint8_t> bytes(100);
  EXPECT_EQ(source.read(bytes.data(), 100), 56);
}

TEST(LMWavSourceLimits, ReadOfNothingDeliversNothing) {
  LMWavSource source;
  uint8_t byte = 0xFF;
  EXPECT_EQ(source.read(&byte, 0), 0);
  source.setRead_offset(1000);
  EXPECT_EQ(source.read(&byte, 0), 0);
  EXPECT_EQ(byte, 0xFF);
}

TEST(LMWavSourceLimits, ReadOfANegativeCountDeliversNothing) {
  LMWavSource source;
  uint8_t byte = 0xFF;
  EXPECT_EQ(source.read(&byte, -1), 0);
  source.setRead_offset(1000);
  EXPECT_EQ(source.read(&byte, -1), 0);
  EXPECT_EQ(byte, 0xFF);
}

TEST(LMWavSourceLimits, DataOfANegativeCountIsNone) {
  LMWavSource source;
  uint8_t byte = 0xFF;
  EXPECT_EQ(source.readData(&byte, -1), 0);
  EXPECT_EQ(byte, 0xFF);
}

TEST(LMWavSourceLimits, DataBehindTheFilesEndIsNone) {
  LMWavSource source;
  uint8_t byte = 0xFF;
  source.setRead_offset(source.filesize() + 1);
  EXPECT_EQ(source.readData(&byte, 1), 0);
  EXPECT_EQ(byte, 0xFF);
}

TEST(LMWavSourceLimits, DataAtAnOffsetIsNotCut) {
  LMWavSource source;
  std::vector<uint8_t> bytes(4, 0xFF);
  EXPECT_EQ(source.readData(bytes.data(), source.filesize() + 5, 3), 3);
  EXPECT_EQ(bytes, (std::vector<uint8_t>{0, 0, 0, 0xFF}));
}

}  // namespace
}  // namespace kestrel
