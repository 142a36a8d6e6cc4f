#include "support/GeometryText.h"

#include <gtest/gtest.h>

namespace kestrel {
namespace {

TEST(GeometryText, RectangleIsTwoPairsInBraces) {
  EXPECT_EQ(textOfRect({{10, 20}, {300, 200}}), "{{10, 20}, {300, 200}}");
  EXPECT_EQ(textOfRect({}), "{{0, 0}, {0, 0}}");
  EXPECT_EQ(textOfRect({{-1.5, 0.25}, {1e6, 3}}), "{{-1.5, 0.25}, {1000000, 3}}");
}

TEST(GeometryText, SizeIsOnePairInBraces) {
  EXPECT_EQ(textOfSize({640, 480}), "{640, 480}");
  EXPECT_EQ(textOfSize({0.1, 1e-3}), "{0.1, 0.001}");
}

TEST(GeometryText, WhatIsWrittenIsReadBack) {
  for (const Rect& rect : {Rect{{10, 20}, {300, 200}}, Rect{{-0.1, 1.0 / 3}, {1e-20, 12345678.9}}})
    EXPECT_EQ(rectOfText(textOfRect(rect)), rect);
  EXPECT_EQ(sizeOfText(textOfSize({1e300, 2.0 / 3})), (Size{1e300, 2.0 / 3}));
}

TEST(GeometryText, WhiteSpaceMayBeMoreOrLess) {
  EXPECT_EQ(rectOfText("{{10,20},{300,200}}"), (Rect{{10, 20}, {300, 200}}));
  EXPECT_EQ(rectOfText("  { { 10 , 20 } ,\n{ 300 ,200 } }\t"), (Rect{{10, 20}, {300, 200}}));
  EXPECT_EQ(sizeOfText("{640,480}"), (Size{640, 480}));
}

TEST(GeometryText, NumbersMayHaveSignsFractionsAndExponents) {
  EXPECT_EQ(sizeOfText("{+640.5, -4.8e2}"), (Size{640.5, -480}));
}

TEST(GeometryText, AnythingElseReadsAsZeros) {
  for (const char* text :
       {"", " ", "640x480", "640, 480", "{640, 480", "{640}", "{640, 480} and more", "{a, b}",
        "{640, }", "{640 480}", "{nan, 1}", "{inf, 1}", "{1e999, 1}", "{++1, 2}", "{+-1, 2}",
        "{{10, 20}, {300, 200}}"}) {
    EXPECT_EQ(sizeOfText(text), Size{}) << text;
  }
  for (const char* text :
       {"", "{640, 480}", "{{10, 20}, {300, 200}", "{{10, 20} {300, 200}}", "{{10, 20}}",
        "{{10, 20}, {300, x}}", "{{10, 20}, {300, 200}}}", "10, 20, 300, 200"}) {
    EXPECT_EQ(rectOfText(text), Rect{}) << text;
  }
}

}  // namespace
}  // namespace kestrel
