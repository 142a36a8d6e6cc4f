#include <gmock/gmock.h>
#include <kestrel/convert/Compose.h>
#include <kestrel/convert/Conversion.h>
#include <kestrel/convert/Join.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "tests/support/Fixture.h"
#include "tests/support/Process.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// What reports say that is not in the result.
class LeftOut : public testing::Test {
 protected:
  /// Of a join of a file with itself.
  std::vector<std::string> leftOut(const std::string& input, const std::string& output,
                                   JoinSettings::Reencode reencode = {}) const {
    JoinSettings settings;
    settings.inputs = {{.path = input}, {.path = input}};
    settings.output = folder_ / output;
    settings.replaces = true;
    settings.reencode = reencode;
    settings.format.encoderPreset = "ultrafast";
    return join(settings).leftOut;
  }

  TempDir folder_;
};

TEST_F(LeftOut, OfAJoinIsATurnThatCopiedPicturesLose) {
  const std::string clip = fixture("av-rotated.mp4").string();
  EXPECT_THAT(leftOut(clip, "out.mp4"), IsEmpty());
  const std::string sentence =
      "left out of '" + clip +
      "': the turn of its pictures, which matroska cannot hold; encoding sets them upright";
  EXPECT_THAT(leftOut(clip, "out.mkv"), ElementsAre(sentence, sentence));
  EXPECT_THAT(leftOut(clip, "out.mkv", JoinSettings::Reencode::kAlways), IsEmpty());
}

TEST_F(LeftOut, OfACompositionIsATurnThatItsContainerCannotHold) {
  const std::string clip = fixture("av-rotated.mp4").string();
  const auto leftOut = [&](const std::string& output) {
    CompositionSettings settings;
    settings.placements = {{.path = clip, .track = 0}, {.path = clip, .track = 1}};
    settings.output = folder_ / output;
    return compose(settings).leftOut;
  };
  EXPECT_THAT(leftOut("out.mp4"), IsEmpty());
  EXPECT_THAT(leftOut("out.mkv"),
              ElementsAre("left out of '" + clip +
                          "': the turn of its pictures, which matroska cannot hold; encoding "
                          "sets them upright"));
}

/// Pictures and sound in Matroska, of which bytes are replaced so far behind where `place` begins.
void makeSpoilt(const std::string& file, const char* codec, const std::string& place, size_t behind,
                const std::string& bytes) {
  const RunResult made =
      run({"ffmpeg", "-v", "error", "-f", "lavfi", "-i", "testsrc=s=64x48:d=0.4", "-f", "lavfi",
           "-i", "sine=d=0.4", "-c:v", codec, "-level", "3", "-c:a", "flac", file});
  ASSERT_EQ(made.status, 0) << made.err;
  std::ifstream in(file, std::ios::binary);
  std::string all{std::istreambuf_iterator<char>(in), {}};
  const size_t at = all.find(place);
  ASSERT_NE(at, std::string::npos);
  all.replace(at + behind, bytes.size(), bytes);
  std::ofstream(file, std::ios::binary) << all;
}

TEST_F(LeftOut, OfAConversionArePicturesThatNobodyCanDecode) {
  const std::string unknown = folder_ / "unknown.mkv";
  makeSpoilt(unknown, "mpeg4", "V_MPEG4/ISO/ASP", 2, "QQQQQ");
  // There is a decoder, which does not open: the head of the pictures is damaged.
  const std::string damaged = folder_ / "damaged.mkv";
  makeSpoilt(damaged, "ffv1", "FFV1", 24, "QQQQQ");
  for (const std::string& input : {unknown, damaged}) {
    SCOPED_TRACE(input);
    ConversionSettings settings;
    settings.input = input;
    settings.output = folder_ / "out.mp4";
    settings.replaces = true;
    EXPECT_THAT(Conversion(settings).run().leftOut,
                ElementsAre(testing::MatchesRegex(
                    "left out of '.*': pictures #0.*: it cannot be decoded")));
  }
}

TEST_F(LeftOut, OfAJoinMayBeAttachments) {
  std::ofstream(folder_ / "note.txt") << "A note";
  const std::string clip = folder_ / "clip.mkv";
  const RunResult made =
      run({"ffmpeg", "-v", "error", "-i", fixture("av25.mp4").string(), "-c", "copy", "-attach",
           folder_ / "note.txt", "-metadata:s:t", "mimetype=text/plain", clip});
  ASSERT_EQ(made.status, 0) << made.err;
  const std::string sentence = "left out of '" + clip + "': 1 attachment";
  EXPECT_THAT(leftOut(clip, "out.mkv"), ElementsAre(sentence, sentence));
}

}  // namespace
}  // namespace kestrel::test
