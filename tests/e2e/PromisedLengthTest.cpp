#include <gtest/gtest.h>

#include <map>
#include <string>
#include <tuple>

#include "tests/e2e/Kestrel.h"
#include "tests/support/Ffprobe.h"
#include "tests/support/FileBytes.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

constexpr int kDone = 0;
constexpr int kDoneInPart = 3;

/// The forms in which a container tells lengths: MPEG-4 of each track, Matroska by tags of each
/// track or of the whole alone, a transport stream not at all.
enum class Form { kMp4, kMatroska, kMatroskaWithoutTags, kTransport };

const char* extensionOf(Form form) {
  return form == Form::kMp4 ? ".mp4" : form == Form::kTransport ? ".ts" : ".mkv";
}

/// Pictures and sound of different lengths, in seconds, in files that a folder holds.
class Clips {
 public:
  std::filesystem::path make(Form form, int pictures, int sound) const {
    const std::string name = std::to_string(pictures) + "-" + std::to_string(sound);
    const auto clip = folder_ / (name + extensionOf(form));
    writeBytes(clip, bytesOf(name + extensionOf(form), pictures, sound));
    if (form == Form::kMatroskaWithoutTags) hideTags(clip);
    return clip;
  }

  /// The length of the whole stays, those of the tracks become tags without a meaning.
  static void hideTags(const std::filesystem::path& clip) {
    std::string bytes = readBytes(clip);
    for (size_t at = 0; (at = bytes.find("DURATION", at)) != std::string::npos;)
      bytes.replace(at, 8, "XXRATION");
    writeBytes(clip, bytes);
  }

  /// The first part of a file, as a download that was broken off.
  std::filesystem::path truncate(const std::filesystem::path& whole, double part) const {
    const auto file = folder_ / ("part-" + whole.filename().string());
    const std::string bytes = readBytes(whole);
    writeBytes(file,
               bytes.substr(0, static_cast<size_t>(static_cast<double>(bytes.size()) * part)));
    return file;
  }

  std::filesystem::path result(const std::string& extension) const {
    return folder_ / ("result" + extension);
  }

 private:
  /// Many tests ask for the same: each is encoded once.
  static const std::string& bytesOf(const std::string& name, int pictures, int sound) {
    static std::map<std::string, std::string> made;
    std::string& bytes = made[name];
    if (!bytes.empty()) return bytes;
    const TempDir folder;
    const Arguments input{
        "-f", "lavfi", "-i", "testsrc2=s=128x96:r=25:d=" + std::to_string(pictures),
        "-f", "lavfi", "-i", "sine=d=" + std::to_string(sound)};
    const Arguments codecs{"-map",      "0",  "-map", "1",    "-c:v", "libx264",   "-preset",
                           "ultrafast", "-g", "10",   "-c:a", "aac",  "-movflags", "+faststart"};
    ffmpeg(joined(joined(input, codecs), {(folder / name).string()}));
    return bytes = readBytes(folder / name);
  }

  TempDir folder_;
};

RunResult kestrel(const Arguments& arguments) {
  return run(joined({kestrelBinary()}, arguments), {.environment = {"SDL_AUDIODRIVER=dummy"}});
}

testing::AssertionResult isWhole(const Arguments& arguments) {
  const RunResult result = kestrel(arguments);
  if (result.status == kDone) return testing::AssertionSuccess();
  return testing::AssertionFailure() << "exit status " << result.status << ": " << result.err;
}

testing::AssertionResult endsEarly(const Arguments& arguments) {
  const RunResult result = kestrel(arguments);
  if (result.status == kDoneInPart && result.err.find("ended early, at ") != std::string::npos)
    return testing::AssertionSuccess();
  return testing::AssertionFailure() << "exit status " << result.status << ": " << result.err;
}

// A conversion that leaves out the longer of pictures and sound, or the shorter, has all that it
// wants.

class LeftOut : public testing::TestWithParam<std::tuple<Form, bool, bool, bool>> {};

TEST_P(LeftOut, IsNotMissed) {
  const auto [form, picturesAreLong, keepsPictures, copies] = GetParam();
  const Clips clips;
  const auto clip = picturesAreLong ? clips.make(form, 6, 2) : clips.make(form, 2, 6);
  const std::string codec = copies ? "copy" : keepsPictures ? "mpeg4" : "aac";
  const auto output = clips.result(keepsPictures ? ".mkv" : ".mka");
  const std::string kept = keepsPictures ? "--video-codec" : "--audio-codec";
  const std::string other = keepsPictures ? "--audio-codec" : "--video-codec";
  EXPECT_TRUE(isWhole({"convert", clip.string(), output.string(), kept, codec, other, "none"}));
  const double length = keepsPictures == picturesAreLong ? 6 : 2;
  const std::string told = ffprobeJson(output, {"-show_format"})["format"]["duration"];
  EXPECT_NEAR(std::stod(told), length, 0.3);
}

INSTANTIATE_TEST_SUITE_P(, LeftOut,
                         testing::Combine(testing::Values(Form::kMp4, Form::kMatroska,
                                                          Form::kMatroskaWithoutTags,
                                                          Form::kTransport),
                                          testing::Bool(), testing::Bool(), testing::Bool()));

// What lacks the end of what is wanted is told all the same.

class Truncated : public testing::TestWithParam<Form> {};

TEST_P(Truncated, IsTold) {
  const Clips clips;
  for (const bool picturesAreLong : {true, false}) {
    SCOPED_TRACE(picturesAreLong ? "long pictures" : "long sound");
    const auto clip = picturesAreLong ? clips.make(GetParam(), 6, 2) : clips.make(GetParam(), 2, 6);
    const std::string part = clips.truncate(clip, 0.7).string();
    const Arguments other{picturesAreLong ? "--audio-codec" : "--video-codec", "none"};
    const std::string codec = picturesAreLong ? "--video-codec" : "--audio-codec";
    const std::string output = clips.result(".mkv").string();
    EXPECT_TRUE(endsEarly(joined({"convert", part, output, "--force"}, other)));
    EXPECT_TRUE(endsEarly(joined({"convert", part, output, "--force", codec, "copy"}, other)));
    EXPECT_TRUE(endsEarly({"convert", part, output, "--force"}));
    for (const auto& more : {other, joined(other, {codec, "copy"}), Arguments{}}) {
      EXPECT_TRUE(endsEarly(joined({"convert", part, output, "--force", "--end", "5.9"}, more)));
      EXPECT_TRUE(isWhole(joined({"convert", part, output, "--force", "--end", "0.5"}, more)));
      for (const char* end : {"5.9", "60"})
        EXPECT_TRUE(
            isWhole(joined({"convert", clip.string(), output, "--force", "--end", end}, more)));
    }
    EXPECT_TRUE(endsEarly({"join", part, part, "-o", output, "--force"}));
    if (picturesAreLong)
      EXPECT_TRUE(endsEarly({"thumb", part, clips.result(".png").string(), "--time", "100%"}));
    else
      EXPECT_TRUE(endsEarly({"wave", part, clips.result(".json").string()}));
  }
}

INSTANTIATE_TEST_SUITE_P(, Truncated,
                         testing::Values(Form::kMp4, Form::kMatroska, Form::kMatroskaWithoutTags));

/// All that reads an input judges it alike.
TEST(PromisedLength, IsTheSameForAll) {
  const Clips clips;
  for (const Form form :
       {Form::kMp4, Form::kMatroska, Form::kMatroskaWithoutTags, Form::kTransport})
    for (const bool picturesAreLong : {true, false}) {
      SCOPED_TRACE(extensionOf(form) + std::string(picturesAreLong ? ", pictures" : ", sound"));
      const auto clip = picturesAreLong ? clips.make(form, 2, 1) : clips.make(form, 1, 2);
      const std::string path = clip.string();
      EXPECT_TRUE(
          isWhole({"thumb", path, clips.result(".png").string(), "--time", "100%", "--force"}));
      EXPECT_TRUE(isWhole({"wave", path, clips.result(".json").string(), "--force"}));
      EXPECT_TRUE(isWhole({"join", path, path, "-o", clips.result(".mka").string(), "--force"}));
      EXPECT_TRUE(isWhole({"join", path, path, "-o", clips.result(".mkv").string(), "--force"}));
      EXPECT_TRUE(isWhole({"play", path, "--no-input", "--rate", "4"}));
    }
}

TEST(PromisedLength, OfASubtitleIsNotThatOfPictures) {
  const TempDir folder;
  writeBytes(folder / "long.srt", "1\n00:00:00,500 --> 00:00:09,000\nStill here\n");
  for (const Form form : {Form::kMatroska, Form::kMatroskaWithoutTags, Form::kMp4}) {
    const Clips clips;
    const auto clip = clips.make(form, 2, 2);
    const std::string path = (folder / ("long" + std::string(extensionOf(form)))).string();
    ffmpeg({"-i", clip.string(), "-i", (folder / "long.srt").string(), "-map", "0", "-map", "1",
            "-c", "copy", "-c:s", form == Form::kMp4 ? "mov_text" : "srt", path});
    if (form == Form::kMatroskaWithoutTags) Clips::hideTags(path);
    EXPECT_TRUE(isWhole({"convert", path, clips.result(".mp4").string()}));
    EXPECT_TRUE(isWhole({"thumb", path, clips.result(".png").string(), "--time", "100%"}));
    EXPECT_TRUE(isWhole({"wave", path, clips.result(".json").string()}));
    EXPECT_TRUE(isWhole({"join", path, path, "-o", clips.result(".mkv").string()}));
    EXPECT_TRUE(isWhole({"play", path, "--no-input", "--rate", "4"}));
  }
}

TEST(PromisedLength, OfRealSubtitlesIsNotThatOfPictures) {
  KESTREL_NEED_MEDIA("three-subtitles-h264-dts.mkv");
  const Clips clips;
  const std::string path = mediaFile("three-subtitles-h264-dts.mkv").string();
  EXPECT_TRUE(isWhole({"convert", path, clips.result(".mp4").string(), "--size", "25%",
                       "--encoder-preset", "ultrafast"}));
  EXPECT_TRUE(isWhole({"thumb", path, clips.result(".png").string(), "--time", "100%"}));
}

}  // namespace
}  // namespace kestrel::test
