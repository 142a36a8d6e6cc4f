#include <kestrel/LMFFImage.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <thread>

#include "support/FFmpegOwners.h"

namespace kestrel {
namespace {

/// A frame whose buffer counts in `freed` how often it is freed.
FramePtr watchedFrame(int& freed) {
  const auto count = [](void* opaque, uint8_t* data) {
    ++*static_cast<int*>(opaque);
    av_free(data);
  };
  FramePtr frame = makeFrame();
  auto* data = static_cast<uint8_t*>(av_mallocz(64));
  frame->buf[0] = av_buffer_create(data, 64, count, &freed, 0);
  frame->data[0] = data;
  return frame;
}

PacketPtr packetOf(const char* text, int flags = 0) {
  PacketPtr packet = makePacket();
  const size_t size = std::strlen(text);
  if (av_new_packet(packet.get(), static_cast<int>(size)) < 0) return nullptr;
  std::memcpy(packet->data, text, size);
  packet->flags = flags;
  packet->pts = 42;
  return packet;
}

TEST(LMFFImage, StartsAsAnEmptyFrameItem) {
  const LMFFImage image;
  EXPECT_FALSE(image.isPacket());
  EXPECT_FALSE(image.is_packet());
  EXPECT_FALSE(image.isOwned());
  EXPECT_EQ(image.frame(), nullptr);
  EXPECT_EQ(image.getFrame(), nullptr);
  EXPECT_EQ(image.getPacket(), nullptr);
  EXPECT_FALSE(image.isKeyPacket());
  EXPECT_EQ(image.pkt_display_time(), 0);
  EXPECT_EQ(image.pkt_time_offset(), 0);
}

TEST(LMFFImage, NullPacketGivesABlankPacketItem) {
  const std::shared_ptr<LMFFImage> image = LMFFImage::imageWithPacket(nullptr);
  EXPECT_TRUE(image->isPacket());
  EXPECT_FALSE(image->isOwned());
  EXPECT_FALSE(image->isKeyPacket());
  ASSERT_NE(image->getPacket(), nullptr);
  EXPECT_EQ(image->getPacket()->data, nullptr);
  EXPECT_EQ(image->getPacket()->buf, nullptr);
  EXPECT_EQ(image->getPacket()->size, 0);
}

TEST(LMFFImage, PacketItemKeepsItsOwnReference) {
  PacketPtr packet = packetOf("hello");
  const std::shared_ptr<LMFFImage> image = LMFFImage::imageWithPacket(packet.get());
  EXPECT_TRUE(image->isPacket());
  EXPECT_TRUE(image->isOwned());
  EXPECT_EQ(image->getFrame(), nullptr);
  ASSERT_NE(image->getPacket(), packet.get());
  EXPECT_EQ(image->getPacket()->data, packet->data);
  EXPECT_EQ(av_buffer_get_ref_count(packet->buf), 2);
  packet.reset();
  EXPECT_EQ(std::memcmp(image->getPacket()->data, "hello", 5), 0);
  EXPECT_EQ(image->getPacket()->pts, 42);
}

TEST(LMFFImage, PacketItemReleasesItsReferenceWhenItGoes) {
  const PacketPtr packet = packetOf("hello");
  LMFFImage::imageWithPacket(packet.get()).reset();
  EXPECT_EQ(av_buffer_get_ref_count(packet->buf), 1);
}

TEST(LMFFImage, PacketWithoutABufferIsCopied) {
  char text[] = "hello";
  const PacketPtr packet = makePacket();
  packet->data = reinterpret_cast<uint8_t*>(text);
  packet->size = 5;
  const std::shared_ptr<LMFFImage> image = LMFFImage::imageWithPacket(packet.get());
  text[0] = 'j';
  ASSERT_EQ(image->getPacket()->size, 5);
  EXPECT_EQ(std::memcmp(image->getPacket()->data, "hello", 5), 0);
}

TEST(LMFFImage, PacketCanBeChangedInPlace) {
  const PacketPtr packet = packetOf("hello");
  const std::shared_ptr<LMFFImage> image = LMFFImage::imageWithPacket(packet.get());
  image->getPacket()->dts = 7;
  EXPECT_EQ(image->packet()->dts, 7);
  EXPECT_EQ(packet->dts, AV_NOPTS_VALUE);
}

TEST(LMFFImage, SettingThePacketReplacesTheReference) {
  const PacketPtr first = packetOf("first");
  const PacketPtr second = packetOf("second");
  const std::shared_ptr<LMFFImage> image = LMFFImage::imageWithPacket(first.get());
  const std::shared_ptr<AVPacket> kept = image->packet();
  image->setPacket(second.get());
  EXPECT_EQ(image->getPacket()->size, 6);
  EXPECT_EQ(kept->size, 5);
  image->setPacket(nullptr);
  EXPECT_EQ(image->getPacket()->size, 0);
  EXPECT_EQ(av_buffer_get_ref_count(second->buf), 1);
}

TEST(LMFFImage, KeyPacketIsAPacketItemWithTheKeyFlag) {
  const PacketPtr key = packetOf("key", AV_PKT_FLAG_KEY);
  const PacketPtr other = packetOf("other", AV_PKT_FLAG_DISCARD);
  const std::shared_ptr<LMFFImage> image = LMFFImage::imageWithPacket(key.get());
  EXPECT_TRUE(image->isKeyPacket());
  EXPECT_FALSE(LMFFImage::imageWithPacket(other.get())->isKeyPacket());
  image->setIs_packet(false);
  EXPECT_FALSE(image->isKeyPacket());
  EXPECT_EQ(image->getPacket(), nullptr);
}

TEST(LMFFImage, BorrowedFrameIsNeverFreed) {
  int freed = 0;
  FramePtr frame = watchedFrame(freed);
  std::shared_ptr<LMFFImage> image = LMFFImage::imageWithFrame(frame.get());
  EXPECT_FALSE(image->isPacket());
  EXPECT_FALSE(image->isOwned());
  EXPECT_EQ(image->getFrame(), frame.get());
  EXPECT_EQ(image->frame(), frame.get());
  EXPECT_EQ(image->getPacket(), nullptr);
  image.reset();
  LMFFImage::imageWithFrame(frame.get(), false).reset();
  EXPECT_EQ(freed, 0);
  frame.reset();
  EXPECT_EQ(freed, 1);
}

TEST(LMFFImage, OwnedFrameIsFreedExactlyOnce) {
  int freed = 0;
  std::shared_ptr<LMFFImage> image = LMFFImage::imageWithFrame(watchedFrame(freed).release(), true);
  EXPECT_TRUE(image->isOwned());
  EXPECT_EQ(freed, 0);
  image.reset();
  EXPECT_EQ(freed, 1);
}

TEST(LMFFImage, OwnedItemWithoutAFrameFreesNothing) {
  EXPECT_EQ(LMFFImage::imageWithFrame(nullptr, true)->getFrame(), nullptr);
}

TEST(LMFFImage, GivingUpOwnershipLeavesTheFrameToTheCaller) {
  int freed = 0;
  FramePtr frame = watchedFrame(freed);
  std::shared_ptr<LMFFImage> image = LMFFImage::imageWithFrame(frame.get(), true);
  image->setIsOwned(false);
  image.reset();
  EXPECT_EQ(freed, 0);
}

TEST(LMFFImage, RealStartTimeMovesTheDisplayTimeBack) {
  LMFFImage image;
  image.setPkt_display_time(5000);
  image.set_movie_real_start_time(1000);
  EXPECT_EQ(image.get_pkt_offset_time(), 4000);
  EXPECT_EQ(image.pkt_display_time(), 4000);
}

TEST(LMFFImage, OffsetTimeIsTheDisplayTimeLessTheOffset) {
  LMFFImage image;
  image.setPkt_display_time(5000);
  image.setPkt_time_offset(7000);
  EXPECT_EQ(image.get_pkt_offset_time(), -2000);
  EXPECT_EQ(image.pkt_display_time(), 5000);
  EXPECT_EQ(image.pkt_time_offset(), 7000);
}

TEST(LMFFImage, TimeBaseIsTheOneSet) {
  LMFFImage image;
  image.setTime_base({1001, 30000});
  EXPECT_EQ(image.time_base(), (Rational{1001, 30000}));
}

TEST(LMFFImage, TimeBaseAndPacketAreReadWholeWhileAnotherThreadSetsThem) {
  const PacketPtr one = packetOf("1");
  const PacketPtr two = packetOf("22");
  const std::shared_ptr<LMFFImage> image = LMFFImage::imageWithPacket(one.get());
  image->setTime_base({1, 1});
  std::atomic<bool> done = false;
  std::thread writer([&] {
    for (int i = 0; i < 20000; i++) {
      image->setTime_base(i % 2 ? Rational{1, 1} : Rational{2, 2});
      image->setPacket(i % 2 ? one.get() : two.get());
    }
    done = true;
  });
  while (!done) {
    const Rational base = image->time_base();
    EXPECT_EQ(base.num, base.den);
    const std::shared_ptr<AVPacket> packet = image->packet();
    EXPECT_EQ(packet->data[0] - '0', packet->size);
  }
  writer.join();
}

}  // namespace
}  // namespace kestrel
