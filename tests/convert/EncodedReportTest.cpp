#include <gmock/gmock.h>
#include <kestrel/convert/Compose.h>
#include <kestrel/convert/Conversion.h>
#include <kestrel/convert/Join.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/Fixture.h"
#include "tests/support/Process.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

/// What reports say of pictures and sound that were encoded though packets are copied.
class EncodedReport : public testing::Test {
 protected:
  /// Groups of eight pictures, of which the cut hides the first three.
  std::string cut() const {
    const auto file = folder_ / "cut.mp4";
    make({"-ss", "0.12", "-i", fixture("groups-h264.mp4").string(), "-c", "copy", file.string()});
    return file.string();
  }

  std::string with(const std::string& name, const std::vector<std::string>& sound) const {
    const auto file = folder_ / name;
    std::vector<std::string> arguments{"-i", fixture("av25.mp4").string(), "-c:v", "copy"};
    arguments.insert(arguments.end(), sound.begin(), sound.end());
    arguments.push_back(file.string());
    make(arguments);
    return file.string();
  }

  static void make(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {"ffmpeg", "-v", "error", "-y"});
    const RunResult result = run(arguments);
    ASSERT_EQ(result.status, 0) << result.err;
  }

  Events listening() {
    Events events;
    events.note = [this](const std::string& sentence) { notes_.push_back(sentence); };
    return events;
  }

  TempDir folder_;
  std::vector<std::string> notes_;
};

TEST_F(EncodedReport, OfACompositionHasPicturesThatNeedHiddenOnes) {
  CompositionSettings settings;
  settings.placements = {{.path = cut(), .position = 3}};
  settings.output = (folder_ / "out.mp4").string();
  const Report report = compose(settings, listening());
  EXPECT_TRUE(report.isWhole());
  const auto sentence =
      "5 pictures of '" + settings.output + "' were encoded anew: they need others that are hidden";
  EXPECT_THAT(report.encoded, ElementsAre(sentence));
  EXPECT_THAT(notes_, ElementsAre(sentence));
}

TEST_F(EncodedReport, OfAConversionDoesToo) {
  ConversionSettings settings;
  settings.input = cut();
  settings.output = (folder_ / "out.mkv").string();
  settings.video = settings.audio = StreamAction::kCopy;
  const Report report = Conversion(settings).run(listening());
  EXPECT_THAT(report.encoded, ElementsAre(StartsWith("5 pictures of '" + settings.input + "'")));
  EXPECT_EQ(notes_, report.encoded);
}

TEST_F(EncodedReport, OfAJoinDoesToo) {
  JoinSettings settings;
  settings.inputs = {{cut()}, {cut()}};
  settings.output = (folder_ / "out.mp4").string();
  const Report report = join(settings, listening());
  EXPECT_THAT(report.encoded, ElementsAre(StartsWith("5 pictures of '")));
  EXPECT_THAT(notes_, Contains(report.encoded.front()));
}

TEST_F(EncodedReport, OfAJoinSaysWhatIsNotCopied) {
  JoinSettings settings;
  settings.inputs = {{fixture("av25.mp4").string()}, {fixture("av25.mp4").string()}};
  settings.output = (folder_ / "out.mp4").string();
  settings.replaces = true;
  EXPECT_THAT(join(settings).encoded, IsEmpty());
  settings.inputs[1].path = with("other.mp4", {"-c:a", "mp3"});
  EXPECT_THAT(join(settings).encoded,
              ElementsAre(testing::AllOf(StartsWith("sound: "), HasSubstr("mp3 instead of aac"))));
  settings.inputs[1].path = fixture("av60.mp4").string();
  settings.inputs[1].rate = 2;
  EXPECT_THAT(join(settings).encoded, ElementsAre(StartsWith("pictures and sound: ")));
}

}  // namespace
}  // namespace kestrel::test
