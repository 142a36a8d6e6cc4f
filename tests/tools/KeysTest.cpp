#include "tools/terminal/Keys.h"

#include <gmock/gmock.h>

#include <string>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::vector<PlayKey> keysOf(std::string_view bytes) { return KeyReader().read(bytes); }

TEST(KeyReader, KnowsEachKey) {
  const std::vector<std::pair<std::string, PlayKey>> keys{
      {" ", PlayKey::kPause},         {"p", PlayKey::kPause},
      {"\x1b[D", PlayKey::kBack},     {"\x1b[C", PlayKey::kForward},
      {"\x1b[B", PlayKey::kFarBack},  {"\x1b[A", PlayKey::kFarForward},
      {"\x1b[H", PlayKey::kToStart},  {"\x1b[1~", PlayKey::kToStart},
      {"[", PlayKey::kSlower},        {"]", PlayKey::kFaster},
      {"{", PlayKey::kHalfAsFast},    {"}", PlayKey::kTwiceAsFast},
      {"\x7f", PlayKey::kUsualSpeed}, {"\b", PlayKey::kUsualSpeed},
      {"9", PlayKey::kQuieter},       {"/", PlayKey::kQuieter},
      {"0", PlayKey::kLouder},        {"*", PlayKey::kLouder},
      {"m", PlayKey::kMute},          {"\x1a", PlayKey::kSuspend},
      {"q", PlayKey::kQuit},          {"Q", PlayKey::kQuit}};
  for (const auto& [bytes, key] : keys) EXPECT_THAT(keysOf(bytes), ElementsAre(key)) << bytes;
}

TEST(KeyReader, KnowsArrowsOfTheApplicationMode) {
  EXPECT_THAT(keysOf("\x1bOA\x1bOB\x1bOC\x1bOD\x1bOH"),
              ElementsAre(PlayKey::kFarForward, PlayKey::kFarBack, PlayKey::kForward,
                          PlayKey::kBack, PlayKey::kToStart));
}

TEST(KeyReader, TakesSeveralAtOnce) {
  EXPECT_THAT(keysOf("]\x1b[C 9"),
              ElementsAre(PlayKey::kFaster, PlayKey::kForward, PlayKey::kPause, PlayKey::kQuieter));
}

TEST(KeyReader, PutsTogetherWhatComesInPieces) {
  KeyReader reader;
  EXPECT_THAT(reader.read("\x1b"), IsEmpty());
  EXPECT_THAT(reader.read("["), IsEmpty());
  EXPECT_THAT(reader.read("Cq"), ElementsAre(PlayKey::kForward, PlayKey::kQuit));
}

TEST(KeyReader, PassesOverWhatMeansNothing) {
  EXPECT_THAT(keysOf("xyz\n\t"), IsEmpty());
  EXPECT_THAT(keysOf("\x1b[5~q"), ElementsAre(PlayKey::kQuit));       // page up
  EXPECT_THAT(keysOf("\x1b[1;5Cq"), ElementsAre(PlayKey::kQuit));     // with control held
  EXPECT_THAT(keysOf("\x1b\x1b[C"), ElementsAre(PlayKey::kForward));  // Escape first
  EXPECT_THAT(keysOf("\x1bq"), ElementsAre(PlayKey::kQuit));
  EXPECT_THAT(keysOf("\xc3\xa4q"), ElementsAre(PlayKey::kQuit));
}

TEST(KeyReader, SequenceWithoutAnEndKeepsNothingBack) {
  KeyReader reader;
  reader.read("\x1b[" + std::string(100, '1'));
  EXPECT_THAT(reader.read("q"), ElementsAre(PlayKey::kQuit));
}

}  // namespace
