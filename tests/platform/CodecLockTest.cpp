#include <gtest/gtest.h>

#include <future>
#include <mutex>
#include <optional>

#include "platform/codec/Codec.h"

namespace kestrel::test {
namespace {

/// Whether somebody holds the codec lock. A thread of its own asks: the one that holds it must not.
bool isLocked() {
  return std::async(std::launch::async,
                    [] { return !std::unique_lock(codecLock(), std::try_to_lock).owns_lock(); })
      .get();
}

/// Notes in `seen` whether the lock is held when `codec` is closed: closing releases the device
/// that the codec is said to have.
void watch(AVCodecContext& codec, std::optional<bool>& seen) {
  const auto release = [](void* opaque, uint8_t* data) {
    *static_cast<std::optional<bool>*>(opaque) = isLocked();
    av_free(data);
  };
  codec.hw_device_ctx = av_buffer_create(static_cast<uint8_t*>(av_malloc(1)), 1, release, &seen, 0);
  ASSERT_NE(codec.hw_device_ctx, nullptr);
}

CodecContextPtr openDecoder() {
  const AVCodec* codec = avcodec_find_decoder(AV_CODEC_ID_PNG);
  CodecContextPtr decoder(avcodec_alloc_context3(codec));
  EXPECT_EQ(openCodec(*decoder, codec), 0);
  return decoder;
}

TEST(CodecLock, IsHeldWhileAnOwnerClosesItsCodec) {
  std::optional<bool> seen;
  {
    const CodecContextPtr decoder = openDecoder();
    watch(*decoder, seen);
    EXPECT_FALSE(isLocked());
  }
  EXPECT_EQ(seen, true);
  EXPECT_FALSE(isLocked());
}

TEST(CodecLock, IsHeldWhileACodecIsReplaced) {
  std::optional<bool> seen;
  CodecContextPtr decoder = openDecoder();
  watch(*decoder, seen);
  decoder = openDecoder();
  EXPECT_EQ(seen, true);
  EXPECT_FALSE(isLocked());
}

}  // namespace
}  // namespace kestrel::test
