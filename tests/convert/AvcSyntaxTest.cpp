#include "convert/cut/AvcSyntax.h"

#include <gmock/gmock.h>

#include <vector>

#include "convert/cut/Bits.h"

namespace kestrel::test {
namespace {

using testing::ElementsAre;

// The table of ISO/IEC 14496-10, 9.1.
TEST(AvcBits, NumbersAreExpGolombCodes) {
  BitWriter writer;
  for (const uint32_t number : {0, 1, 2, 3, 7}) writer.number(number);  // 1 010 011 00100 0001000
  EXPECT_THAT(writer.bytes(), ElementsAre(0b10100110, 0b01000001, 0b00000000));
  BitReader reader(writer.bytes());
  for (const uint32_t number : {0, 1, 2, 3, 7}) EXPECT_EQ(reader.number(), number);
}

TEST(AvcBits, SignedNumbersAlternate) {
  BitWriter writer;
  for (const int32_t number : {0, 1, -1, 2, -2}) writer.signedNumber(number);
  BitReader plain(writer.bytes());
  for (const uint32_t code : {0, 1, 2, 3, 4}) EXPECT_EQ(plain.number(), code);
  BitReader reader(writer.bytes());
  for (const int32_t number : {0, 1, -1, 2, -2}) EXPECT_EQ(reader.signedNumber(), number);
}

TEST(AvcSyntax, BytesThatLookLikeAStartAreGuarded) {
  const AvcUnit plain{0x65, 0, 0, 1, 0, 0, 0, 3, 0, 0, 4};
  const AvcUnit safe = guarded(plain);
  EXPECT_THAT(safe, ElementsAre(0x65, 0, 0, 3, 1, 0, 0, 3, 0, 3, 0, 0, 4));
  EXPECT_EQ(unguarded(safe), plain);
}

/// A sequence of High profile as 7.3.2.1.1 has it: 320 x 180, shown in another order, 16 numbers.
AvcUnit sequenceUnit() {
  BitWriter writer;
  writer.bits(0x67, 8);
  writer.bits(100, 8);
  writer.bits(0, 8);
  writer.bits(31, 8);
  writer.number(0);
  writer.number(1);  // chroma of half size
  writer.number(0);
  writer.number(0);
  writer.bit(0);
  writer.bit(0);     // no matrices
  writer.number(0);  // 4 bits
  writer.number(0);  // order by number
  writer.number(2);  // 6 bits
  writer.number(4);  // references
  writer.bit(0);
  writer.number(19);
  writer.number(11);
  writer.bit(1);  // frames only
  writer.bit(1);
  writer.bit(1);  // cropped
  for (const uint32_t side : {0, 0, 0, 6}) writer.number(side);
  writer.bit(0);
  writer.bit(1);
  return guarded(writer.bytes());
}

TEST(AvcSyntax, SequencesTellHowSlicesAreWritten) {
  const auto sequence = readAvcSequence(sequenceUnit());
  ASSERT_TRUE(sequence);
  EXPECT_EQ(sequence->profile, 100);
  EXPECT_EQ(sequence->numberBits, 4);
  EXPECT_EQ(sequence->orderBits, 6);
  EXPECT_EQ(sequence->references, 4u);
  EXPECT_EQ(sequence->width, 20u);
  EXPECT_EQ(sequence->height, 12u);
  EXPECT_TRUE(sequence->framesOnly);
  EXPECT_FALSE(readAvcSequence(AvcUnit{0x68, 1, 2}));
  AvcUnit damaged = sequenceUnit();
  damaged.resize(6);
  EXPECT_FALSE(readAvcSequence(damaged));
}

TEST(AvcSyntax, PictureSetsGetAnotherNumber) {
  BitWriter writer;
  writer.bits(0x68, 8);
  writer.number(0);
  writer.number(0);
  writer.bits(0b0111, 4);
  writer.bit(1);
  const AvcUnit moved = renumbered(writer.bytes(), 5, 2);
  const auto set = readAvcPictureSet(moved);
  ASSERT_TRUE(set);
  EXPECT_EQ(set->id, 5u);
  EXPECT_EQ(set->sequence, 2u);
  EXPECT_FALSE(set->isArithmetic);
  EXPECT_TRUE(set->tellsBottomOrder);
}

// The head of a slice (7.3.3) is written for the other sequence; what follows stays, bit by bit.
TEST(AvcSyntax, SlicesMoveToAnotherSequence) {
  BitWriter writer;
  writer.bits(0x65, 8);
  writer.number(0);
  writer.number(7);
  writer.number(0);   // set
  writer.bits(0, 5);  // number, of 5 bits
  writer.number(0);   // restart
  writer.bits(0b1011001110001, 13);
  writer.bit(1);
  AvcMove move;
  move.from.numberBits = 5;
  move.from.orderType = 2;
  move.to.numberBits = 9;
  move.to.orderBits = 6;
  move.to.framesOnly = false;
  move.set = 3;
  const AvcUnit slice = unguarded(moved(writer.bytes(), move, 0, 11));
  BitReader reader(slice);
  EXPECT_EQ(reader.bits(8), 0x65u);
  EXPECT_EQ(reader.number(), 0u);
  EXPECT_EQ(reader.number(), 7u);
  EXPECT_EQ(reader.number(), 3u);
  EXPECT_EQ(reader.bits(9), 0u);
  EXPECT_EQ(reader.bit(), 0u);  // a frame
  EXPECT_EQ(reader.number(), 11u);
  EXPECT_EQ(reader.bits(6), 0u);  // order
  EXPECT_EQ(reader.bits(13), 0b1011001110001u);
  EXPECT_EQ(reader.place(), reader.lastOne());
}

}  // namespace
}  // namespace kestrel::test
