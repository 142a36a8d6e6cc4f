#include <gmock/gmock.h>
#include <unistd.h>

#include <cstring>
#include <random>

#include "tests/e2e/NumberedClip.h"
#include "tests/support/FileBytes.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

using testing::IsEmpty;

constexpr int kDone = 0;
constexpr int kFailed = 1;
constexpr int kDoneInPart = 3;

std::string bigEndian(uint32_t number) {
  std::string bytes;
  for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(number >> shift & 255);
  return bytes;
}

std::string box(const std::string& name, const std::string& content) {
  return bigEndian(static_cast<uint32_t>(content.size() + 8)) + name + content;
}

class ConvertBadInput : public testing::Test {
 protected:
  std::filesystem::path input(const std::string& name, const std::string& bytes) {
    const auto file = in_ / name;
    writeBytes(file, bytes);
    return file;
  }

  /// Whether a conversion fails with a sentence that names the input, and leaves nothing behind.
  testing::AssertionResult isRefused(const std::filesystem::path& input) {
    const auto said = endsWithSentence(convert(input, out_ / "out.mp4"), kFailed, input.string());
    if (!said) return said;
    if (!namesIn(out_.path()).empty())
      return testing::AssertionFailure() << "left behind: " << *namesIn(out_.path()).begin();
    return testing::AssertionSuccess();
  }

  /// Whether a damaged input ends in a sound file and, where it is shorter, in a sentence; or in a
  /// failure that leaves nothing behind.
  testing::AssertionResult endsWell(const std::filesystem::path& input) {
    const auto output = out_ / "out.mp4";
    const RunResult result = convert(input, output, {"--encoder-preset", "ultrafast", "--force"});
    if (result.status == kDone || result.status == kDoneInPart) {
      if (result.status == kDoneInPart) {
        const auto said = endsWithSentence(result, kDoneInPart, input.string());
        if (!said) return said;
      }
      try {
        ffmpeg({"-i", output.string(), "-enc_time_base:v", "-1", "-f", "null", "-"});
      } catch (const std::exception& error) {
        return testing::AssertionFailure() << "the result is broken: " << error.what();
      }
      std::filesystem::remove(output);
    } else {
      const auto said = endsWithSentence(result, kFailed, input.string());
      if (!said) return said;
    }
    if (!namesIn(out_.path()).empty())
      return testing::AssertionFailure() << "left behind: " << *namesIn(out_.path()).begin();
    return testing::AssertionSuccess();
  }

  TempDir in_;
  TempDir out_;
};

TEST_F(ConvertBadInput, Missing) {
  EXPECT_TRUE(isRefused(in_ / "missing.mp4"));
  EXPECT_THAT(convert(in_ / "missing.mp4", out_ / "out.mp4").err,
              testing::HasSubstr("No such file or directory"));
}

TEST_F(ConvertBadInput, Unreadable) {
  if (geteuid() == 0) GTEST_SKIP() << "root reads everything";
  const auto file = input("secret.mp4", "x");
  std::filesystem::permissions(file, std::filesystem::perms::none);
  EXPECT_TRUE(isRefused(file));
}

TEST_F(ConvertBadInput, NotMedia) {
  EXPECT_TRUE(isRefused(input("text.mp4", "This is a letter to a friend.\n")));
  std::mt19937 random(1);
  std::string noise(100000, '\0');
  for (char& byte : noise) byte = static_cast<char>(random());
  EXPECT_TRUE(isRefused(input("noise.mp4", noise)));
  EXPECT_TRUE(isRefused(input("noise", noise)));
}

TEST_F(ConvertBadInput, SubtitlesAlone) { EXPECT_TRUE(isRefused(fixture("subtitles.srt"))); }

TEST_F(ConvertBadInput, NoStreams) {
  const std::string movieHeader =
      box("mvhd", std::string(12, '\0') + bigEndian(1000) + bigEndian(2000) + bigEndian(0x10000) +
                      std::string(76, '\0') + bigEndian(1));
  EXPECT_TRUE(isRefused(input("bare.mp4", box("ftyp", "isom" + bigEndian(512) + "isom") +
                                              box("moov", movieHeader) + box("mdat", ""))));
}

TEST_F(ConvertBadInput, ZeroSizedVideo) {
  const auto source = in_ / "zero.avi";
  ffmpeg({"-f", "lavfi", "-i", "testsrc=size=32x32:duration=0.2", "-c:v", "rawvideo", "-pix_fmt",
          "bgr24", source.string()});
  std::string bytes = readBytes(source);
  // Width and height follow the size of the picture's description.
  const size_t format = bytes.find("strf");
  ASSERT_NE(format, std::string::npos);
  bytes.replace(format + 12, 8, 8, '\0');
  EXPECT_TRUE(isRefused(input("zero.avi", bytes)));
}

TEST_F(ConvertBadInput, ThreeHundredMegabytesOfZeros) {
  for (const char* name : {"zeros.mp4", "zeros.ts", "zeros"}) {
    const auto file = input(name, "");
    std::filesystem::resize_file(file, 300'000'000);
    EXPECT_TRUE(isRefused(file));
  }
}

TEST_F(ConvertBadInput, TruncatedAnywhere) {
  for (const char* name :
       {"numbered25.mp4", "numbered25.mkv", "numbered25.ts", "mpeg4-bframes.avi"}) {
    const std::string bytes = readBytes(fixture(name));
    for (const double part : {0.001, 0.01, 0.1, 0.3, 0.5, 0.7, 0.9, 0.99, 0.999}) {
      SCOPED_TRACE(std::string(name) + " to " + std::to_string(part));
      const auto size = static_cast<size_t>(static_cast<double>(bytes.size()) * part);
      EXPECT_TRUE(endsWell(input(name, bytes.substr(0, size))));
    }
  }
}

TEST_F(ConvertBadInput, WhatIsThereOfATruncatedFileIsKept) {
  const auto whole = in_ / "whole.mp4";
  ffmpeg({"-i", fixture("numbered25.mp4").string(), "-c", "copy", "-movflags", "+faststart",
          whole.string()});
  const std::string bytes = readBytes(whole);
  const auto half = input("half.mp4", bytes.substr(0, bytes.size() * 6 / 10));
  const auto output = out_ / "out.mp4";
  const RunResult result = convert(half, output);
  EXPECT_TRUE(endsWithSentence(result, kDoneInPart, half.string()));
  const auto numbers = shownNumbers(output);
  EXPECT_GT(numbers.size(), 30u);
  EXPECT_LT(numbers.size(), 125u);
  EXPECT_EQ(numbers, countingFrom(0, static_cast<int>(numbers.size())));
}

TEST_F(ConvertBadInput, DamagedAnywhere) {
  for (const char* name :
       {"numbered25.mp4", "numbered25-aac.mkv", "numbered25.ts", "mpeg4-bframes.avi"}) {
    const std::string bytes = readBytes(fixture(name));
    for (unsigned seed = 0; seed < 4; ++seed) {
      SCOPED_TRACE(std::string(name) + ", seed " + std::to_string(seed));
      std::mt19937 random(seed);
      std::string damaged = bytes;
      for (size_t i = 0; i < 2 + bytes.size() / 5000; ++i)
        damaged[random() % damaged.size()] = static_cast<char>(random());
      EXPECT_TRUE(endsWell(input(name, damaged)));
    }
  }
}

TEST_F(ConvertBadInput, AHoleOfZerosInTheMiddle) {
  for (const char* name : {"numbered25.mp4", "numbered25-aac.mkv", "numbered25.ts"}) {
    SCOPED_TRACE(name);
    std::string bytes = readBytes(fixture(name));
    bytes.replace(bytes.size() * 4 / 10, bytes.size() / 10, bytes.size() / 10, '\0');
    EXPECT_TRUE(endsWell(input(name, bytes)));
  }
}

/// Multiplies the number of four bytes that lies `offset` bytes behind a box's name by 1000.
void lengthen(std::string& bytes, const std::string& name, size_t offset) {
  const size_t at = bytes.find(name) + 4 + offset;
  uint32_t number = 0;
  for (size_t i = 0; i < 4; ++i) number = number << 8 | static_cast<uint8_t>(bytes.at(at + i));
  bytes.replace(at, 4, bigEndian(number * 1000));
}

TEST_F(ConvertBadInput, AHeaderThatPromisesAThousandTimesTheLength) {
  std::string bytes = readBytes(fixture("numbered25.mp4"));
  lengthen(bytes, "mvhd", 16);  // the movie's duration
  lengthen(bytes, "tkhd", 20);  // the video track's
  lengthen(bytes, "mdhd", 16);  // its media's
  const auto file = input("lying.mp4", bytes);
  const auto output = out_ / "out.mp4";
  const RunResult result = convert(file, output, {"--encoder-preset", "ultrafast"});
  if (result.status != kDone) {
    EXPECT_TRUE(endsWithSentence(result, kDoneInPart, file.string()));
  }
  EXPECT_EQ(shownNumbers(output), countingFrom(0, 125));
  EXPECT_NEAR(static_cast<double>(sampleCount(output)), 5 * 44100, 1024);
}

TEST_F(ConvertBadInput, AHeaderThatPromisesLessThanThereIs) {
  // 'data' of 1000 bytes in a WAV file of 176400: what the header covers is what there is.
  std::string bytes = readBytes(fixture("pcm-mono-44100-s16.wav"));
  const size_t at = bytes.find("data") + 4;
  bytes.replace(at, 4, std::string("\xE8\x03\0\0", 4));
  const auto output = out_ / "out.wav";
  ASSERT_TRUE(converts(input("short.wav", bytes), output));
  EXPECT_EQ(sampleCount(output), 500);
}

TEST_F(ConvertBadInput, AHeaderThatPromisesMoreThanThereIs) {
  std::string bytes = readBytes(fixture("pcm-mono-44100-s16.wav"));
  const size_t at = bytes.find("data") + 4;
  bytes.replace(at, 4, "\x7F\x7F\x7F\x7F");
  const auto output = out_ / "out.wav";
  const RunResult result = convert(input("long.wav", bytes), output);
  EXPECT_TRUE(result.status == kDone || result.status == kDoneInPart) << result.err;
  EXPECT_NEAR(static_cast<double>(sampleCount(output)), 2 * 44100, 16);
}

TEST_F(ConvertBadInput, AnOldTargetStaysAsItWas) {
  const auto output = out_ / "out.mp4";
  writeBytes(output, "precious");
  const auto result = convert(input("text.mp4", "not a movie"), output, {"--force"});
  EXPECT_EQ(result.status, kFailed);
  EXPECT_EQ(readBytes(output), "precious");
  EXPECT_EQ(namesIn(out_.path()), std::set<std::string>{"out.mp4"});
}

}  // namespace
}  // namespace kestrel::test
