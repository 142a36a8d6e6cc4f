#include <fcntl.h>
#include <gtest/gtest.h>
#include <kestrel/LMMediaSource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "support/FFmpegOwners.h"
#include "tests/media/Sources.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

/// A named pipe.
class Pipe {
 public:
  Pipe() { EXPECT_EQ(mkfifo(path().c_str(), 0600), 0); }
  std::string path() const { return (folder_.path() / "input.ts").string(); }

 private:
  TempDir folder_;
};

void writeAll(int file, const std::vector<uint8_t>& bytes, size_t count) {
  for (size_t done = 0; done < count;) {
    const ssize_t written = write(file, bytes.data() + done, count - done);
    ASSERT_GT(written, 0);
    done += static_cast<size_t>(written);
  }
}

int packetsOf(LMMediaSource& source) {
  int packets = 0;
  const PacketPtr packet = makePacket();
  for (; source.readPacket(packet.get()); av_packet_unref(packet.get())) ++packets;
  return packets;
}

TEST(LMMediaSourcePipe, InterruptEndsTheOpeningOfAPipeThatNobodyWritesTo) {
  const Pipe pipe;
  const auto source = LMMediaSource::mediaWithPath(pipe.path());
  int questions = 0;
  source->setInterrupt([&] { return ++questions > 3; });
  source->open();
  EXPECT_FALSE(source->isOpen());
  EXPECT_TRUE(source->lastError());
}

TEST(LMMediaSourcePipe, InterruptEndsAReadOfAPipeThatStalls) {
  const Pipe pipe;
  const auto bytes = bytesOf(fixture("numbered25.mkv"));
  std::atomic<bool> isInterrupted = false;
  std::jthread writer([&](const std::stop_token& stop) {
    const int file = open(pipe.path().c_str(), O_WRONLY);
    writeAll(file, *bytes, bytes->size());
    while (!stop.stop_requested()) std::this_thread::yield();  // and nothing more, without an end
    close(file);
  });

  const auto source = LMMediaSource::mediaWithPath(pipe.path());
  source->setInterrupt([&] { return isInterrupted.load(); });
  source->open();
  ASSERT_TRUE(source->isOpen());
  EXPECT_FALSE(source->isSeekable());
  std::jthread user([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    isInterrupted = true;
  });
  EXPECT_GT(packetsOf(*source), 50);
  EXPECT_TRUE(isInterrupted);
}

TEST(LMMediaSourcePipe, ReadsASmallFileWithItsIndexAtTheEnd) {
  const auto bytes = bytesOf(fixture("av25.mp4"));
  ASSERT_GT(bytes->size(), 40000u);
  ASSERT_LT(bytes->size(), 1u << 20);
  const Pipe pipe;
  std::jthread writer([&] {
    const int file = open(pipe.path().c_str(), O_WRONLY);
    writeAll(file, *bytes, bytes->size());
    close(file);
  });
  const auto source = LMMediaSource::mediaWithPath(pipe.path());
  source->open();
  const auto whole = LMMediaSource::mediaWithPath(fixture("av25.mp4").string());
  whole->open();
  EXPECT_EQ(packetsOf(*source), packetsOf(*whole));
}

TEST(LMMediaSourcePipe, GivesAllThatIsWrittenToIt) {
  const auto whole = LMMediaSource::mediaWithPath(fixture("av25.ts").string());
  whole->open();
  const int expected = packetsOf(*whole);
  ASSERT_GT(expected, 100);

  const Pipe named;
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const auto bytes = bytesOf(fixture("av25.ts"));
  const std::string numbered = "pipe:" + std::to_string(ends[0]);
  for (const std::string& path : {named.path(), numbered}) {
    SCOPED_TRACE(path == numbered ? "numbered" : "named");
    std::jthread writer([&] {
      const int file = path == numbered ? ends[1] : open(path.c_str(), O_WRONLY);
      writeAll(file, *bytes, bytes->size());
      close(file);
    });
    const auto source = LMMediaSource::mediaWithPath(path);
    source->open();
    EXPECT_EQ(packetsOf(*source), expected);
  }
  close(ends[0]);
}

}  // namespace
}  // namespace kestrel::test
