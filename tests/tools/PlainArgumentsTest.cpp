#include "tools/cli/PlainArguments.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string> markedOf(std::vector<std::string> arguments) {
  std::vector<char*> pointers;
  for (std::string& argument : arguments) pointers.push_back(argument.data());
  return marked(static_cast<int>(pointers.size()), pointers.data());
}

TEST(PlainArguments, StandLastOneFirstWithoutTheProgramsName) {
  EXPECT_THAT(markedOf({"kestrel", "info", "a.mp4"}), ElementsAre("a.mp4", "info"));
  EXPECT_THAT(markedOf({"kestrel"}), IsEmpty());
  EXPECT_THAT(markedOf({}), IsEmpty());
}

TEST(PlainArguments, ThoseBehindTheSeparatorAreMarked) {
  const auto arguments = markedOf({"kestrel", "info", "--json", "--", "--a", "b", "--"});
  ASSERT_EQ(arguments.size(), 5U);
  std::vector<bool> plain;
  std::vector<std::string> words;
  for (const std::string& argument : arguments) {
    plain.push_back(isPlain(argument));
    words.push_back(withoutMark(argument));
  }
  EXPECT_THAT(plain, ElementsAre(true, true, true, false, false));
  EXPECT_THAT(words, ElementsAre("--", "b", "--a", "--json", "info"));
}

// In front of a verb it separates nothing.
TEST(PlainArguments, ASeparatorInFrontIsAnArgument) {
  EXPECT_THAT(markedOf({"kestrel", "--", "info"}), ElementsAre("info", "--"));
}

}  // namespace
