#include "support/Entities.h"

#include <gtest/gtest.h>

namespace kestrel::test {
namespace {

TEST(Entities, NamesAndNumbersAreRead) {
  EXPECT_EQ(withEntitiesRead("Tom &amp; Jerry &lt;3"), "Tom & Jerry <3");
  EXPECT_EQ(withEntitiesRead("&eacute;&Eacute;&nbsp;&yuml;"), "éÉ\u00A0ÿ");
  EXPECT_EQ(withEntitiesRead("&hellip;&mdash;&euro;"), "…—€");
  EXPECT_EQ(withEntitiesRead("&#233;&#xE9;&#XE9;&#x1F600;"), "ééé😀");
}

TEST(Entities, WhatIsNoReferenceStays) {
  for (const char* text : {"", "plain", "R&B", "R&B; soul", "&", "a & b;", "&;", "&#;", "&#x;",
                           "&#12x;", "&#xD800;", "&#x110000;", "&#7;", "&unknown;"})
    EXPECT_EQ(withEntitiesRead(text), text);
}

TEST(Entities, OneIsReadOnce) { EXPECT_EQ(withEntitiesRead("&amp;amp;lt;"), "&amp;lt;"); }

TEST(Entities, CodesOfSubtitlesDoNotArise) {
  EXPECT_EQ(withEntitiesRead("&#123;\\b1&#125;&#92;N"), "&#123;\\b1&#125;&#92;N");
}

}  // namespace
}  // namespace kestrel::test
