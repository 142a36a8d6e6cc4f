#include "convert/cut/CutProof.h"

#include <gmock/gmock.h>
#include <kestrel/LMMediaSource.h>

#include <filesystem>
#include <string>

#include "convert/cut/CutWriter.h"
#include "convert/cut/StretchForm.h"
#include "convert/probe/InputOutline.h"
#include "tests/support/FileBytes.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

using testing::HasSubstr;

/// A cut of cut.mp4, 12800 ticks a second, from 0.92 s to 4.2 s.
class CutProofs : public testing::Test {
 protected:
  CutProofs() {
    settings_.input = fixture("cut.mp4").string();
    settings_.output = (folder_ / "out.mp4").string();
    const auto source = job_.reader();
    job_.info = mediaInfoOf(*source);
    job_.outline = outlineOf(*source->formatContext());
    job_.video = 0;
    job_.index = indexPictures(*source, 0, events_);
    std::string why;
    form_ = makeStretchForm(*job_.outline->streams[0], job_.index, why);
    plan_ = planPictures(job_.index, {{11776, 53760}}, {});
    result_ = writeCut(job_, plan_, form_.get(), 0, settings_.output);
  }

  CutProof prove(const PicturePlan& plan) const {
    return proveCut(job_, plan, result_.shown, settings_.output);
  }

  TempDir folder_;
  CutSettings settings_;
  Events events_;
  CutJob job_{.settings = settings_, .events = events_};
  std::unique_ptr<StretchForm> form_;
  PicturePlan plan_;
  CutResult result_;
};

TEST_F(CutProofs, HoldForWhatWasWritten) {
  EXPECT_EQ(result_.problem, "");
  const CutProof proof = prove(plan_);
  EXPECT_EQ(proof.problem, "");
  EXPECT_EQ(proof.seams, static_cast<int64_t>(plan_.stretches.size()) - 1);
  EXPECT_EQ(proof.alikePictures, plan_.encoded());
  EXPECT_GT(proof.equalPictures, 30);
}

TEST_F(CutProofs, SeeOtherPictures) {
  PicturePlan other = planPictures(job_.index, {{12288, 54272}}, {});  // a picture later
  ASSERT_GE(other.pictures.size(), plan_.pictures.size());
  std::vector<int64_t> shown;
  for (const PlannedPicture& picture : other.pictures) shown.push_back(picture.shown);
  EXPECT_NE(proveCut(job_, other, shown, settings_.output).problem, "");
}

TEST_F(CutProofs, SeeMissingPictures) {
  std::vector<int64_t> shown = result_.shown;
  PicturePlan longer = plan_;
  longer.pictures.push_back(longer.pictures.back());
  longer.pictures.back().source += 512;
  shown.push_back(plan_.windows.back().length());
  ++longer.stretches.back().count;
  EXPECT_THAT(proveCut(job_, longer, shown, settings_.output).problem, HasSubstr("missing"));
}

TEST_F(CutProofs, SeeDamage) {
  std::string bytes = readBytes(settings_.output);
  for (size_t i = bytes.size() / 20; i < bytes.size() / 3; i += 97)
    bytes[i] = static_cast<char>(~bytes[i]);
  writeBytes(settings_.output, bytes);
  EXPECT_NE(prove(plan_).problem, "");
}

}  // namespace
}  // namespace kestrel::test
