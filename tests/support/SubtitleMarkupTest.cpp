#include "support/SubtitleMarkup.h"

#include <gmock/gmock.h>

namespace kestrel {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

TEST(SubtitleMarkup, PlainTextStaysAsItIs) {
  const MarkedText marked = readSubtitleMarkup("One line,\nanother – 日本語");
  EXPECT_EQ(marked.text, "One line,\nanother – 日本語");
  EXPECT_THAT(marked.runs, IsEmpty());
}

TEST(SubtitleMarkup, EachMarkHasItsLook) {
  const MarkedText marked = readSubtitleMarkup("<b>b</b><i>i</i><u>u</u><s>s</s>");
  EXPECT_EQ(marked.text, "bius");
  EXPECT_THAT(marked.runs, ElementsAre(TextRun{.location = 0, .length = 1, .bold = true},
                                       TextRun{.location = 1, .length = 1, .italic = true},
                                       TextRun{.location = 2, .length = 1, .underline = true},
                                       TextRun{.location = 3, .length = 1, .strikethrough = true}));
}

TEST(SubtitleMarkup, CaseDoesNotMatter) {
  const MarkedText marked = readSubtitleMarkup("<I>x</i>");
  EXPECT_EQ(marked.text, "x");
  EXPECT_THAT(marked.runs, ElementsAre(TextRun{.location = 0, .length = 1, .italic = true}));
}

TEST(SubtitleMarkup, MarksMayCross) {
  const MarkedText marked = readSubtitleMarkup("a<b>b<i>c</b>d</i>e");
  EXPECT_EQ(marked.text, "abcde");
  EXPECT_THAT(marked.runs,
              UnorderedElementsAre(TextRun{.location = 1, .length = 2, .bold = true},
                                   TextRun{.location = 2, .length = 2, .italic = true}));
}

TEST(SubtitleMarkup, OpenMarkReachesToTheEnd) {
  const MarkedText marked = readSubtitleMarkup("one <i>two");
  EXPECT_EQ(marked.text, "one two");
  EXPECT_THAT(marked.runs, ElementsAre(TextRun{.location = 4, .length = 3, .italic = true}));
}

TEST(SubtitleMarkup, LonelyEndAndEmptyMarkLeaveNothing) {
  const MarkedText marked = readSubtitleMarkup("a</i><b></b>b");
  EXPECT_EQ(marked.text, "ab");
  EXPECT_THAT(marked.runs, IsEmpty());
}

TEST(SubtitleMarkup, EntitiesAreCharacters) {
  EXPECT_EQ(readSubtitleMarkup("1 &lt; 2 &amp;amp; &lt;i&gt;").text, "1 < 2 &amp; <i>");
}

TEST(SubtitleMarkup, EverythingElseIsText) {
  for (const char* text : {"<", "a < b", "<font>", "<x>", "</", "</i", "<i", "&", "&nbsp;", "<>"}) {
    const MarkedText marked = readSubtitleMarkup(text);
    EXPECT_EQ(marked.text, text);
    EXPECT_THAT(marked.runs, IsEmpty()) << text;
  }
}

TEST(SubtitleMarkup, LongInputTakesItsTimeOnce) {
  std::string source;
  for (int i = 0; i < 100'000; ++i) source += "<b>";
  const MarkedText marked = readSubtitleMarkup(source + "x");
  EXPECT_EQ(marked.text, "x");
  EXPECT_EQ(marked.runs.size(), 100'000u);
}

}  // namespace
}  // namespace kestrel
