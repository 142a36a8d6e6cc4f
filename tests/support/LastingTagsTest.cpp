#include "support/LastingTags.h"

#include <gtest/gtest.h>

namespace kestrel::test {
namespace {

using Tags = std::map<std::string, std::string>;

TEST(LastingTags, AreAllButWhatTheContainerSaysOfItself) {
  EXPECT_EQ(lastingTags({{"title", "A"},
                         {"comment", "of an encoder"},
                         {"major_brand", "isom"},
                         {"minor_version", "512"},
                         {"compatible_brands", "isomiso2"},
                         {"encoder", "somebody's"}}),
            (Tags{{"title", "A"}, {"comment", "of an encoder"}}));
  EXPECT_EQ(lastingTags({}), Tags());
}

TEST(LastingTags, OfPhonesGetTheirCommonNames) {
  EXPECT_EQ(lastingTags({{"com.apple.quicktime.location.ISO6709", "+48.1374+011.5755/"},
                         {"com.apple.quicktime.creationdate", "2020-05-06T10:11:12+0200"},
                         {"com.apple.quicktime.make", "Somebody"},
                         {"com.apple.quicktime.title", "Beach"},
                         {"com.apple.quicktime.live-photo.auto", "1"}}),
            (Tags{{"location", "+48.1374+011.5755/"},
                  {"date", "2020-05-06T10:11:12+0200"},
                  {"make", "Somebody"},
                  {"title", "Beach"},
                  {"com.apple.quicktime.live-photo.auto", "1"}}));
}

TEST(LastingTags, ACommonNameCountsBeforeAnother) {
  const Tags expected{{"title", "B"}};
  EXPECT_EQ(lastingTags({{"com.apple.quicktime.title", "A"}, {"title", "B"}}), expected);
  EXPECT_EQ(lastingTags({{"title", "B"}, {"com.apple.quicktime.title", "A"}}), expected);
}

}  // namespace
}  // namespace kestrel::test
