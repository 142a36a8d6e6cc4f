#include <gtest/gtest.h>
#include <kestrel/LMFIFODataBuffer.h>

#include <algorithm>
#include <deque>
#include <random>
#include <string>
#include <string_view>
#include <thread>

namespace kestrel {
namespace {

void append(LMFIFODataBuffer& fifo, std::string_view bytes) {
  EXPECT_TRUE(fifo.appendBytes(bytes.data(), bytes.size()));
}

/// Up to `length` bytes taken from the queue.
std::string read(LMFIFODataBuffer& fifo, uint64_t length) {
  std::string bytes(length, '?');
  bytes.resize(fifo.readBytes(bytes.data(), length));
  return bytes;
}

TEST(LMFIFODataBufferTest, StartsWithTwoEmptyBuffers) {
  const LMFIFODataBuffer fifo;
  ASSERT_TRUE(fifo.readData());
  ASSERT_TRUE(fifo.writeData());
  EXPECT_NE(fifo.readData(), fifo.writeData());
  EXPECT_TRUE(fifo.readData()->empty());
  EXPECT_TRUE(fifo.writeData()->empty());
  EXPECT_EQ(fifo.length(), 0);
}

TEST(LMFIFODataBufferTest, ReadingFromAnEmptyQueueTakesNothingAndSwapsTheBuffers) {
  LMFIFODataBuffer fifo;
  const auto reading = fifo.readData();
  const auto writing = fifo.writeData();
  EXPECT_EQ(read(fifo, 10), "");
  EXPECT_EQ(fifo.readData(), writing);
  EXPECT_EQ(fifo.writeData(), reading);
}

TEST(LMFIFODataBufferTest, ReadOfMoreThanIsQueuedTakesWhatThereIs) {
  LMFIFODataBuffer fifo;
  append(fifo, "abcdef");
  EXPECT_EQ(read(fifo, 10), "abcdef");
  EXPECT_EQ(fifo.length(), 0);
}

TEST(LMFIFODataBufferTest, ReadGoesOnFromOneBufferToTheOther) {
  LMFIFODataBuffer fifo;
  append(fifo, "abc");
  EXPECT_EQ(read(fifo, 2), "ab");
  append(fifo, "def");
  EXPECT_EQ(read(fifo, 10), "cdef");
}

TEST(LMFIFODataBufferTest, LengthIsWhatWasAppendedLessWhatWasRead) {
  LMFIFODataBuffer fifo;
  append(fifo, "abcde");
  EXPECT_EQ(fifo.length(), 5);
  read(fifo, 2);
  EXPECT_EQ(fifo.length(), 3);
  append(fifo, "fghi");
  EXPECT_EQ(fifo.length(), 7);
  read(fifo, 4);
  EXPECT_EQ(fifo.length(), 3);
}

TEST(LMFIFODataBufferTest, ClearForgetsBothBuffersAndTheReadPosition) {
  LMFIFODataBuffer fifo;
  append(fifo, "abcdef");
  read(fifo, 2);
  append(fifo, "ghi");
  fifo.clear();
  EXPECT_EQ(fifo.length(), 0);
  EXPECT_TRUE(fifo.readData()->empty());
  EXPECT_TRUE(fifo.writeData()->empty());

  append(fifo, "xyz");
  EXPECT_EQ(read(fifo, 10), "xyz");
}

TEST(LMFIFODataBufferTest, AppendingGoesToTheWriteBufferOnly) {
  LMFIFODataBuffer fifo;
  append(fifo, "abcd");
  read(fifo, 1);
  append(fifo, "ef");
  EXPECT_EQ(fifo.readData()->size(), 4u);
  EXPECT_EQ(fifo.writeData()->size(), 2u);
}

TEST(LMFIFODataBufferTest, OneStepReadsTheReadBufferOnly) {
  LMFIFODataBuffer fifo;
  append(fifo, "abcd");
  read(fifo, 1);
  append(fifo, "ef");
  const auto reading = fifo.readData();
  std::string bytes(10, '?');

  EXPECT_EQ(fifo.readBytesHelper(bytes.data(), 1), 1u);
  EXPECT_EQ(fifo.readData(), reading);
  EXPECT_EQ(fifo.readBytesHelper(bytes.data() + 1, 9), 2u);
  EXPECT_EQ(bytes.substr(0, 3), "bcd");
  EXPECT_EQ(fifo.writeData(), reading);
  EXPECT_TRUE(fifo.writeData()->empty());
}

TEST(LMFIFODataBufferTest, ReadBufferThatIsJustUsedUpSwapsAtOnce) {
  LMFIFODataBuffer fifo;
  append(fifo, "abc");
  const auto writing = fifo.writeData();
  read(fifo, 1);
  EXPECT_EQ(fifo.readData(), writing);
  read(fifo, 2);
  EXPECT_EQ(fifo.writeData(), writing);
}

TEST(LMFIFODataBufferTest, NothingIsAppendedOrReadForLengthZero) {
  LMFIFODataBuffer fifo;
  EXPECT_TRUE(fifo.appendBytes(nullptr, 0));
  append(fifo, "ab");
  EXPECT_EQ(fifo.readBytes(nullptr, 0), 0u);
  EXPECT_EQ(fifo.length(), 2);
  EXPECT_EQ(read(fifo, 2), "ab");
}

TEST(LMFIFODataBufferTest, SetBuffersAreUsed) {
  LMFIFODataBuffer fifo;
  const auto writing = std::make_shared<LMFIFODataBuffer::Data>();
  fifo.setReadData(std::make_shared<LMFIFODataBuffer::Data>(LMFIFODataBuffer::Data{'a', 'b'}));
  fifo.setWriteData(writing);
  append(fifo, "c");
  EXPECT_EQ(*writing, (LMFIFODataBuffer::Data{'c'}));
  EXPECT_EQ(fifo.length(), 3);
  EXPECT_EQ(read(fifo, 3), "abc");
}

TEST(LMFIFODataBufferTest, NullStandsForAnEmptyBuffer) {
  LMFIFODataBuffer fifo;
  fifo.setReadData(nullptr);
  fifo.setWriteData(nullptr);
  append(fifo, "abc");
  EXPECT_EQ(fifo.length(), 3);
  EXPECT_EQ(read(fifo, 10), "abc");
}

TEST(LMFIFODataBufferTest, ReadBufferShorterThanWhatWasConsumedHasNothingLeft) {
  LMFIFODataBuffer fifo;
  append(fifo, "abcdef");
  read(fifo, 4);
  fifo.setReadData(std::make_shared<LMFIFODataBuffer::Data>(LMFIFODataBuffer::Data{'x'}));
  append(fifo, "yz");
  EXPECT_EQ(fifo.length(), 2);
  EXPECT_EQ(read(fifo, 10), "yz");
}

TEST(LMFIFODataBufferTest, WarmedUpQueueUsesTheSameStorageForever) {
  LMFIFODataBuffer fifo;
  const std::string bytes(1000, 'x');
  for (int i = 0; i < 2; ++i) {
    append(fifo, bytes);
    read(fifo, 300);
    append(fifo, bytes);
    read(fifo, 1700);
  }
  // After each round the buffers are back in the places they had.
  const uint8_t* reading = fifo.readData()->data();
  const uint8_t* writing = fifo.writeData()->data();
  for (int i = 0; i < 20; ++i) {
    append(fifo, bytes);
    read(fifo, 300);
    append(fifo, bytes);
    read(fifo, 1700);
    const bool swapped = fifo.readData()->data() != reading;
    EXPECT_EQ(fifo.readData()->data(), swapped ? writing : reading);
    EXPECT_EQ(fifo.writeData()->data(), swapped ? reading : writing);
  }
}

TEST(LMFIFODataBufferTest, AnySequenceComesOutAsItWentIn) {
  std::mt19937 random(7);
  LMFIFODataBuffer fifo;
  std::deque<char> model;
  for (int step = 0; step < 5000; ++step) {
    const size_t length = random() % 40;
    const auto kind = random() % 100;
    if (kind == 0) {
      fifo.clear();
      model.clear();
    } else if (kind <= 50) {
      std::string bytes(length, '\0');
      for (char& byte : bytes) byte = static_cast<char>(random());
      append(fifo, bytes);
      model.insert(model.end(), bytes.begin(), bytes.end());
    } else {
      const auto end = model.begin() + static_cast<int>(std::min(length, model.size()));
      EXPECT_EQ(read(fifo, length), std::string(model.begin(), end));
      model.erase(model.begin(), end);
    }
    ASSERT_EQ(fifo.length(), static_cast<int64_t>(model.size())) << step;
  }
}

TEST(LMFIFODataBufferTest, WriterAndReaderThreadsLoseNothing) {
  constexpr uint64_t kTotal = 200000;
  LMFIFODataBuffer fifo;
  std::thread writer([&fifo] {
    std::string bytes;
    for (uint64_t sent = 0; sent < kTotal; sent += bytes.size()) {
      bytes.clear();
      const uint64_t length = std::min<uint64_t>(kTotal - sent, 1 + sent % 997);
      for (uint64_t i = 0; i < length; ++i) bytes += static_cast<char>((sent + i) % 251);
      append(fifo, bytes);
    }
  });
  uint64_t received = 0;
  uint64_t wrong = 0;
  while (received < kTotal) {
    const std::string bytes = read(fifo, 1 + received % 1499);
    for (char byte : bytes) wrong += byte != static_cast<char>(received++ % 251);
    if (bytes.empty()) std::this_thread::yield();
  }
  writer.join();
  EXPECT_EQ(wrong, 0u);
  EXPECT_EQ(fifo.length(), 0);
}

}  // namespace
}  // namespace kestrel
