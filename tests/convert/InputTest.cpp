#include "convert/probe/Input.h"

#include <gmock/gmock.h>
#include <kestrel/LMDVDTitleSource.h>
#include <kestrel/LMFFMedia.h>
#include <kestrel/LMFFMovie.h>
#include <kestrel/LMMediaSource.h>
#include <kestrel/convert/Disc.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "tests/convert/Failures.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

extern "C" {
#include <libavformat/avformat.h>
}

namespace kestrel::test {
namespace {

using testing::EndsWith;

class InputTest : public testing::Test {
 protected:
  std::string written(const std::string& name, const std::string& text) const {
    const auto path = folder_ / name;
    std::ofstream(path) << text;
    return path.string();
  }

  /// What is said of a path that cannot be opened, without how the sentence begins.
  static std::string refusal(const std::string& path, std::optional<int> title = {}) {
    const Failure failure = failureOf([&] { openInput(path, title, {}); });
    EXPECT_EQ(failure.kind(), Failure::Kind::kInput);
    EXPECT_EQ(failure.subject(), path);
    const std::string sentence = failure.what();
    const std::string beginning = "cannot open '" + path + "': ";
    EXPECT_TRUE(sentence.starts_with(beginning)) << sentence;
    return sentence.substr(beginning.size());
  }

  static std::string disc() { return (discFixture("pal") / "disc").string(); }

  const TempDir folder_;
};

TEST_F(InputTest, AFileIsOpened) {
  const auto source = openInput(fixture("av25.mp4").string(), {}, {});
  EXPECT_TRUE(source->isOpen());
  EXPECT_EQ(source->formatContext()->nb_streams, 2U);
}

TEST_F(InputTest, AFileThatCannotBeOpenedIsRefusedWithItsReason) {
  EXPECT_EQ(refusal((folder_ / "none.mp4").string()), "No such file or directory");
  EXPECT_EQ(refusal(folder_.path().string()), "Is a directory");
  EXPECT_EQ(refusal(written("empty.mp4", "")), "the file is empty");
  EXPECT_EQ(refusal(written("text.mp4", "no movie, but a line of text")),
            "not a media file, or damaged at its beginning");
  EXPECT_EQ(refusal(written("tags.txt", ";FFMETADATA1\ntitle=A\n")), "it has no streams");
}

TEST_F(InputTest, ADiscIsOpenedByItsTitle) {
  for (const int title : {kMainTitle, 1}) {
    const auto source = std::dynamic_pointer_cast<LMDVDTitleSource>(openInput(disc(), title, {}));
    ASSERT_NE(source, nullptr);
    EXPECT_TRUE(source->isOpen());
    EXPECT_EQ(source->title()->chapters().size(), 4U);
  }
}

TEST_F(InputTest, ADiscWithoutATitleIsAFaultOfTheSettings) {
  const Failure failure = failureOf([] { openInput(disc(), {}, {}); });
  EXPECT_EQ(failure.kind(), Failure::Kind::kSettings);
  EXPECT_EQ(failure.subject(), "title");
}

TEST_F(InputTest, AFileThatIsNoDiscHasNoTitles) {
  const Failure failure = failureOf([] { openInput(fixture("av25.mp4").string(), 1, {}); });
  EXPECT_EQ(failure.kind(), Failure::Kind::kInput);
}

TEST_F(InputTest, AnInterruptEndsTheOpening) {
  EXPECT_EQ(
      failureOf([] { openInput(fixture("av25.mp4").string(), {}, [] { return true; }); }).kind(),
      Failure::Kind::kInterrupted);
}

TEST_F(InputTest, WhateverReadsAnInputAsksItsInterrupt) {
  bool isTime = false;
  const auto source = openInput(fixture("av25.mp4").string(), {}, [&] { return isTime; });
  LMFFMovie movie;
  movie.openMedias(source->createMedias());
  ASSERT_EQ(movie.medias().size(), 2U);
  for (const bool answer : {false, true}) {
    isTime = answer;
    EXPECT_EQ(isInterrupted(*source), answer);
    for (const auto& media : movie.medias()) EXPECT_EQ(isInterrupted(*media), answer);
    EXPECT_EQ(isInterrupted(movie), answer);
  }
}

TEST_F(InputTest, WithoutAnInterruptNothingIsInterrupted) {
  EXPECT_FALSE(isInterrupted(*openInput(fixture("av25.mp4").string(), {}, {})));
  EXPECT_FALSE(isInterrupted(LMFFMedia()));
  EXPECT_FALSE(isInterrupted(LMFFMovie()));
}

TEST_F(InputTest, AFileIsRequiredThatCanBeReadAndHoldsSomething) {
  const auto complaint = [](const std::string& path) {
    return std::string(failureOf([&] { requireFile(path); }).what());
  };
  EXPECT_NO_THROW(requireFile(written("text.txt", "a")));
  EXPECT_THAT(complaint((folder_ / "none").string()), EndsWith("': No such file or directory"));
  EXPECT_THAT(complaint(folder_.path().string()), EndsWith("': Is a directory"));
  EXPECT_THAT(complaint(written("empty", "")), EndsWith("': the file is empty"));
}

}  // namespace
}  // namespace kestrel::test
