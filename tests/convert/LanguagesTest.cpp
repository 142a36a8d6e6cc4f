#include "convert/probe/Languages.h"

#include <gtest/gtest.h>
#include <kestrel/LMMediaSource.h>

#include "tests/support/Fixture.h"

extern "C" {
#include <libavformat/avformat.h>
}

namespace kestrel::test {
namespace {

TEST(Languages, AreThoseThatStreamsAreTaggedWith) {
  const auto source = LMMediaSource::mediaWithPath(fixture("av-tracks.mkv").string());
  source->open();
  const AVFormatContext& input = *source->formatContext();
  EXPECT_EQ(languageOf(*input.streams[0]), "");
  EXPECT_EQ(languageOf(*input.streams[1]), "eng");
  EXPECT_EQ(languageOf(*input.streams[2]), "fre");
}

TEST(Languages, HaveSeveralCodesEach) {
  for (const char* code : {"fre", "fra", "fr"})
    for (const char* other : {"fre", "fra", "fr"})
      EXPECT_TRUE(isSameLanguage(code, other)) << code << ' ' << other;
  EXPECT_TRUE(isSameLanguage("ger", "de"));
  EXPECT_TRUE(isSameLanguage("eng", "en"));
  EXPECT_FALSE(isSameLanguage("ger", "fre"));
  EXPECT_FALSE(isSameLanguage("en", "de"));
}

TEST(Languages, AnUnknownCodeIsOnlyItself) {
  EXPECT_TRUE(isSameLanguage("qqx", "qqx"));
  EXPECT_FALSE(isSameLanguage("qqx", "qqy"));
  EXPECT_FALSE(isSameLanguage("qqx", "en"));
  EXPECT_FALSE(isSameLanguage("und", "eng"));
  EXPECT_FALSE(isSameLanguage("", "en"));
}

}  // namespace
}  // namespace kestrel::test
