#include <gmock/gmock.h>
#include <kestrel/MovieLook.h>

#include <cmath>

#include "tests/media/EffectStream.h"

namespace kestrel::test {
namespace {

/// The first and last row, from the top, that have any ink; {height, -1} without.
std::pair<int, int> inkRows(const BitmapImage& image) {
  std::pair<int, int> rows{image.height(), -1};
  for (int y = 0; y < image.height(); ++y) {
    for (int x = 0; x < image.width(); ++x) {
      if (rgbaAt(image, x, y)[3] == 0) continue;
      rows = {std::min(rows.first, y), y};
      break;
    }
  }
  return rows;
}

class LMFFEffectVideoStreamSubtitle : public testing::Test {
 protected:
  LMFFEffectVideoStreamSubtitle() { stream_.setOutputFormat({AV_PIX_FMT_RGBA, 1280, 720}); }

  std::shared_ptr<const BitmapImage> drawn(const std::string& text) {
    stream_.setSubtitleCurrentString(text);
    return stream_.subtitleImageWithAttributedString(stream_.subtitleAttributedText());
  }

  LMFFEffectVideoStream stream_;
};

// Settings.

TEST_F(LMFFEffectVideoStreamSubtitle, FontIsTheSystemsAt80UnlessSet) {
  EXPECT_EQ(stream_.subtitleFont(), Font::systemFontOfSize(80));
  Font font{.family = "serif", .size = 20};
  stream_.setSubtitleFont(font);
  EXPECT_EQ(stream_.subtitleFont(), font);
  stream_.setSubtitleFont(std::nullopt);
  EXPECT_EQ(stream_.subtitleFont(), Font::systemFontOfSize(80));
}

TEST_F(LMFFEffectVideoStreamSubtitle, ColourIsWhiteUnlessSet) {
  EXPECT_EQ(stream_.subtitleColor(), Color::white());
  stream_.setSubtitleColor(kRedColor);
  EXPECT_EQ(stream_.subtitleColor(), kRedColor);
  stream_.setSubtitleColor(std::nullopt);
  EXPECT_EQ(stream_.subtitleColor(), Color::white());
}

// The text.

TEST_F(LMFFEffectVideoStreamSubtitle, TextHasFontColourAndCentredLines) {
  stream_.setSubtitleCurrentString("one\ntwo");
  stream_.setSubtitleColor(kRedColor);
  const AttributedString text = stream_.subtitleAttributedText();
  EXPECT_EQ(text.text(), "one\ntwo");
  EXPECT_EQ(text.attributes().font, Font::systemFontOfSize(80));
  EXPECT_EQ(text.attributes().foregroundColor, kRedColor);
  EXPECT_EQ(text.attributes().paragraphStyle.alignment, TextAlignment::kCenter);
  EXPECT_TRUE(text.runs().empty());
}

TEST_F(LMFFEffectVideoStreamSubtitle, WithoutAStringTextIsEmpty) {
  EXPECT_EQ(stream_.subtitleAttributedText().text(), "");
}

TEST_F(LMFFEffectVideoStreamSubtitle, WhiteSpaceAroundTheTextMakesNoDifference) {
  const auto plain = drawn("Some words");
  ASSERT_TRUE(plain);
  EXPECT_EQ(bytesOf(*drawn("  Some words\n")), bytesOf(*plain));
  EXPECT_EQ(drawn(" \t\r\nSome words")->width(), plain->width());
}

TEST_F(LMFFEffectVideoStreamSubtitle, LineBreaksMakeLines) {
  const auto one = drawn("word");
  const auto two = drawn("word\nword");
  EXPECT_EQ(two->height(), 2 * one->height());
  EXPECT_EQ(two->width(), one->width());
}

// Drawing.

TEST_F(LMFFEffectVideoStreamSubtitle, TextIsDrawnInItsColourOnTransparentGround) {
  stream_.setSubtitleColor(Color{0, 0, 1, 1});
  const auto image = drawn("HHHH");
  ASSERT_TRUE(image);
  bool hasInk = false;
  bool hasGround = false;
  for (int y = 0; y < image->height(); ++y) {
    for (int x = 0; x < image->width(); ++x) {
      const Rgba color = rgbaAt(*image, x, y);
      if (color == kBlue) hasInk = true;
      if (color[3] == 0) hasGround = true;
      ASSERT_TRUE(color[3] == 0 || color[0] + color[1] == 0);
    }
  }
  EXPECT_TRUE(hasInk && hasGround);
}

TEST_F(LMFFEffectVideoStreamSubtitle, TextIsAsLargeAsItsBox) {
  stream_.setSubtitleCurrentString("Some words");
  const AttributedString text = stream_.subtitleAttributedText();
  const Rect box = text.boundingRectWithSize({1280, 720});
  const auto image = stream_.subtitleImageWithAttributedString(text);
  EXPECT_EQ(image->width(), box.size.width);
  EXPECT_EQ(image->height(), box.size.height);
}

TEST_F(LMFFEffectVideoStreamSubtitle, HighPositionLimitsTheHeight) {
  stream_.setSubtitlePosition(0.9F);
  // 720 × (1 - 0.9) in single precision is a little above 72.
  const auto image = drawn("one\ntwo\nthree");
  ASSERT_TRUE(image);
  EXPECT_EQ(image->height(), 73);
  EXPECT_LT(inkRows(*image).first, 73);
}

TEST_F(LMFFEffectVideoStreamSubtitle, NothingToDrawIsNoImage) {
  EXPECT_EQ(stream_.subtitleImageWithAttributedString(std::nullopt), nullptr);
  EXPECT_EQ(drawn(" \n\t"), nullptr);
  stream_.setSubtitlePosition(1);
  EXPECT_EQ(drawn("text"), nullptr);
  stream_.setSubtitlePosition(1.5F);
  EXPECT_EQ(drawn("text"), nullptr);
  stream_.setSubtitlePosition(0);
  stream_.setOutputFormat({AV_PIX_FMT_RGBA, 0, 0});
  EXPECT_EQ(drawn("text"), nullptr);
}

// In the picture.

TEST_F(LMFFEffectVideoStreamSubtitle, LiesCentredWithItsLowerEdgeAtThePosition) {
  stream_.setSubtitlePosition(0.1F);
  const auto bitmap = drawn("Some words");
  const Rect extent = stream_.currentSubtitleImage()->extent();
  EXPECT_EQ(extent.size.width, bitmap->width());
  EXPECT_EQ(extent.size.height, bitmap->height());
  EXPECT_EQ(extent.origin.y, 72);
  EXPECT_EQ(extent.origin.x, 640 - bitmap->width() * 0.5);
}

TEST_F(LMFFEffectVideoStreamSubtitle, InkHoldsToThePixelRow) {
  EffectStream stream(1280, 720);
  stream->setSubtitlePosition(0.1F);
  stream->setSubtitleCurrentString("HHH");
  stream->writeFrame(rgbaFrame(1280, 720, kBlack).get());
  const auto text = stream->subtitleImageWithAttributedString(stream->subtitleAttributedText());
  const auto [top, bottom] = inkRows(*text);
  const auto picture = stream.picture();
  const int above = 720 - 72 - text->height();  // of the text block
  std::vector<int> brightest(720);
  for (int y = 0; y < 720; ++y)
    for (int x = 0; x < 1280; ++x)
      brightest[static_cast<size_t>(y)] =
          std::max(brightest[static_cast<size_t>(y)], rgbaAt(*picture, x, y)[0]);
  for (int y = 0; y < 720; ++y)
    EXPECT_EQ(brightest[static_cast<size_t>(y)] > 0, y >= above + top && y <= above + bottom) << y;
}

TEST_F(LMFFEffectVideoStreamSubtitle, TextLiesOnWholePixelsInAnyWidth) {
  for (const int width : {640, 641}) {
    EffectStream stream(width, 90);
    stream->setSubtitleFont(Font::systemFontOfSize(20));
    stream->setSubtitlePosition(0.17F);  // 15.3 of 90
    stream->setSubtitleCurrentString("Hills and vales");
    stream->writeFrame(rgbaFrame(width, 90, kBlack).get());
    const auto block = stream->subtitleImageWithAttributedString(stream->subtitleAttributedText());
    // White on black shows each pixel's share of the text as it was drawn.
    const auto picture = stream.picture();
    const int left = (width - block->width() + 1) / 2;
    const int above = 90 - 15 - block->height();
    for (int y = 0; y < block->height(); ++y)
      for (int x = 0; x < block->width(); ++x)
        ASSERT_EQ(rgbaAt(*picture, left + x, above + y)[1], rgbaAt(*block, x, y)[3])
            << width << ' ' << x << ',' << y;
  }
}

TEST_F(LMFFEffectVideoStreamSubtitle, BottomIsTheOutputsLowerEdgeAtFirst) {
  drawn("Some words");
  EXPECT_EQ(stream_.currentSubtitleImage()->extent().origin.y, 0);
}

TEST_F(LMFFEffectVideoStreamSubtitle, WithoutATextThereIsNoImage) {
  EXPECT_EQ(stream_.currentSubtitleImage(), nullptr);
  stream_.setSubtitleCurrentString("");
  EXPECT_EQ(stream_.currentSubtitleImage(), nullptr);
}

// The cache.

TEST_F(LMFFEffectVideoStreamSubtitle, SameTextIsDrawnOnce) {
  stream_.setSubtitleCurrentString("text");
  const auto image = stream_.currentSubtitleImage();
  ASSERT_TRUE(image);
  EXPECT_EQ(stream_.currentSubtitleImage(), image);
  EXPECT_EQ(stream_.subtitleImage(), image);
  EXPECT_EQ(stream_.subtitleImageString(), "text");
  stream_.setSubtitleCurrentString("other");
  EXPECT_NE(stream_.currentSubtitleImage(), image);
}

TEST_F(LMFFEffectVideoStreamSubtitle, TextThatComesBackAfterAGapIsNotDrawnAgain) {
  stream_.setSubtitleCurrentString("text");
  const auto image = stream_.currentSubtitleImage();
  stream_.setSubtitleCurrentString(std::nullopt);
  EXPECT_EQ(stream_.currentSubtitleImage(), nullptr);
  stream_.setSubtitleCurrentString("");
  EXPECT_EQ(stream_.currentSubtitleImage(), nullptr);
  stream_.setSubtitleCurrentString("text");
  EXPECT_EQ(stream_.currentSubtitleImage(), image);
}

TEST_F(LMFFEffectVideoStreamSubtitle, TextThatDrewNothingIsNotTriedAgain) {
  stream_.setSubtitleCurrentString("  ");
  EXPECT_EQ(stream_.currentSubtitleImage(), nullptr);
  EXPECT_EQ(stream_.subtitleImageString(), "  ");
}

TEST_F(LMFFEffectVideoStreamSubtitle, NewFontShowsWithTheNextTextOrUpdate) {
  stream_.setSubtitleCurrentString("text");
  const auto large = stream_.currentSubtitleImage();
  stream_.setSubtitleFont(Font::systemFontOfSize(20));
  EXPECT_EQ(stream_.currentSubtitleImage(), large);
  stream_.updateSubtitle();
  EXPECT_EQ(stream_.subtitleImage(), nullptr);
  EXPECT_EQ(stream_.subtitleImageString(), std::nullopt);
  const auto small = stream_.currentSubtitleImage();
  EXPECT_LT(small->extent().size.height, large->extent().size.height);
}

// Outline and margin.

TEST_F(LMFFEffectVideoStreamSubtitle, AnOutlineIsBlackAndAsWideAsAsked) {
  const auto plain = drawn("HH");
  MovieLook look = stream_.look();
  look.subtitleOutline = 4;
  stream_.setLook(look);
  const auto outlined = drawn("HH");
  const auto blacks = [](const BitmapImage& image) {
    int count = 0;
    for (int y = 0; y < image.height(); ++y)
      for (int x = 0; x < image.width(); ++x)
        count += rgbaAt(image, x, y) == Rgba{0, 0, 0, 255} ? 1 : 0;
    return count;
  };
  EXPECT_EQ(blacks(*plain), 0);
  EXPECT_GT(blacks(*outlined), 1000);
  const auto [plainTop, plainBottom] = inkRows(*plain);
  const auto [top, bottom] = inkRows(*outlined);
  EXPECT_NEAR(bottom - top, plainBottom - plainTop + 2 * 4, 1);
}

TEST_F(LMFFEffectVideoStreamSubtitle, AMarginWrapsTheTextEarlier) {
  const std::string text = "many words that take about the whole width of it";
  const auto wide = drawn(text);
  MovieLook look = stream_.look();
  look.subtitleMargin = 0.2F;
  stream_.setLook(look);
  const auto narrow = drawn(text);
  EXPECT_GT(wide->width(), 1280 * 6 / 10);
  EXPECT_LE(narrow->width(), 1280 * 6 / 10);
  EXPECT_GT(narrow->height(), wide->height());
}

// Markup.

TEST_F(LMFFEffectVideoStreamSubtitle, MarksAreTextUnlessAskedFor) {
  stream_.setSubtitleCurrentString("<i>one</i>");
  EXPECT_FALSE(stream_.subtitleMarkup());
  EXPECT_EQ(stream_.subtitleAttributedText().text(), "<i>one</i>");
}

TEST_F(LMFFEffectVideoStreamSubtitle, MarksBecomeLooks) {
  stream_.setSubtitleMarkup(true);
  stream_.setSubtitleCurrentString("  an <i>italic</i> and\na <b>bold</b> word\n");
  const AttributedString text = stream_.subtitleAttributedText();
  EXPECT_EQ(text.text(), "an italic and\na bold word");
  EXPECT_THAT(text.runs(),
              testing::UnorderedElementsAre(TextRun{.location = 3, .length = 6, .italic = true},
                                            TextRun{.location = 16, .length = 4, .bold = true}));
  const auto plain = drawn("word");
  EXPECT_NE(bytesOf(*drawn("<b>word</b>")), bytesOf(*plain));
  EXPECT_EQ(bytesOf(*drawn("<b></b>word")), bytesOf(*plain));
}

}  // namespace
}  // namespace kestrel::test
