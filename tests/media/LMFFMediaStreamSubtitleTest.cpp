#include <gmock/gmock.h>
#include <kestrel/Image.h>
#include <kestrel/TextSubtitle.h>

#include <array>
#include <cmath>
#include <cstring>

#include "support/FFmpegCompat.h"
#include "tests/media/HandMade.h"
#include "tests/media/Media.h"

namespace kestrel::test {
namespace {

using testing::ElementsAre;

constexpr SubtitlePalette kBlack{0x108080, 0x108080, 0x108080, 0x108080, 0x108080, 0x108080,
                                 0x108080, 0x108080, 0x108080, 0x108080, 0x108080, 0x108080,
                                 0x108080, 0x108080, 0x108080, 0x108080};

// Text.

class LMFFMediaStreamText : public testing::Test {
 protected:
  LMFFMediaStreamText()
      : stream_(
            openedStream(container_.addStream(AVMEDIA_TYPE_SUBTITLE, AV_CODEC_ID_ASS, {1, 100}))) {}

  /// The text that is shown for the text field of a dialogue line.
  std::optional<std::string> shown(const std::string& text) {
    const std::string line = "0,0,Default,,0,0,0,," + text;
    start_ += 200;
    EXPECT_TRUE(stream_->decodePacket(packetOf(line, start_, 150).get()));
    return stream_->subtitleString();
  }

  /// The same as markup.
  std::optional<std::string> marked(const std::string& text) {
    shown(text);
    return stream_->subtitleMarkupAt(start_ + 1);
  }

  int64_t start_ = 50;  // of the newest line, in hundredths

  HandMadeContainer container_;
  std::unique_ptr<LMFFMediaStream> stream_;
};

TEST_F(LMFFMediaStreamText, NoneBeforeTheFirst) {
  EXPECT_EQ(stream_->subtitleString(), std::nullopt);
}

TEST_F(LMFFMediaStreamText, FieldsOfTheLineAreDropped) { EXPECT_EQ(shown("Plain"), "Plain"); }

TEST_F(LMFFMediaStreamText, OnlyWhatFollowsTheLastCommaIsShown) {
  EXPECT_EQ(shown("{\\i1}Hello, world"), " world");
}

TEST_F(LMFFMediaStreamText, OnlyWhatFollowsTheLastClosingBraceIsShown) {
  EXPECT_EQ(shown("One, two {\\b1}three"), "three");
  EXPECT_EQ(shown("{\\b1}bold{\\b0}"), "");
}

TEST_F(LMFFMediaStreamText, BackslashNMakesTwoLines) {
  EXPECT_EQ(shown("First\\NSecond"), "First\nSecond");
  EXPECT_EQ(shown("A\\N\\NB\\N"), "A\n\nB\n");
}

TEST_F(LMFFMediaStreamText, OtherBackslashesStay) {
  EXPECT_EQ(shown("a\\nb \\h c\\"), "a\\nb \\h c\\");
}

TEST_F(LMFFMediaStreamText, BytesBeyondAsciiStay) { EXPECT_EQ(shown("Größe ★"), "Größe ★"); }

TEST_F(LMFFMediaStreamText, MarkupKeepsTheWholeText) {
  EXPECT_EQ(stream_->subtitleMarkupAt(1), std::nullopt);
  EXPECT_EQ(marked("Well, yes, of course"), "Well, yes, of course");
}

TEST_F(LMFFMediaStreamText, MarkupHonoursItalicsBoldAndLineBreaks) {
  EXPECT_EQ(marked("{\\i1}Hello,{\\i0} world\\Nand {\\b1}you{\\b0}\\nall"),
            "<i>Hello,</i> world\nand <b>you</b>\nall");
  EXPECT_EQ(marked("{\\u1}a{\\s1}b"), "<u>a</u><u><s>b</s></u>");
  EXPECT_EQ(marked("{\\b700}heavy{\\b400}light"), "<b>heavy</b>light");
}

TEST_F(LMFFMediaStreamText, TagsOfMarkupAreProperlyNested) {
  EXPECT_EQ(marked("{\\i1}a{\\b1}b{\\i0}c"), "<i>a</i><b><i>b</i></b><b>c</b>");
  EXPECT_EQ(marked("{\\i1\\b1}a{\\r}b"), "<b><i>a</i></b>b");
}

TEST_F(LMFFMediaStreamText, MarkupLeavesOtherCodesAndDrawingsOut) {
  EXPECT_EQ(marked("{\\pos(10,20)\\fs40\\bord2\\c&HFF&}a{a comment}b"), "ab");
  EXPECT_EQ(marked("a{\\p1}m 0 0 l 10 10{\\p0}b"), "ab");
  EXPECT_EQ(marked("{\\be1\\iclip(1)\\blur3}x"), "x");
}

TEST_F(LMFFMediaStreamText, MarkupEscapesItsOwnCharacters) {
  EXPECT_EQ(marked("1 < 2 & 3 > 2"), "1 &lt; 2 &amp; 3 &gt; 2");
}

TEST_F(LMFFMediaStreamText, MarkupOfBrokenCodesIsTheText) {
  EXPECT_EQ(marked("{\\i1 never closed"), "{\\i1 never closed");
  EXPECT_EQ(marked("a}b{}c{\\}d{\\i}e"), "a}bcde");
  EXPECT_EQ(marked("hard\\hspace\\"), "hard\u00A0space\\");
}

/// SubRip, in a time base of milliseconds.
class LMFFMediaStreamStyledText : public testing::Test {
 protected:
  LMFFMediaStreamStyledText()
      : stream_(openedStream(container_.addStream(AVMEDIA_TYPE_SUBTITLE, AV_CODEC_ID_SUBRIP))) {}

  void add(const std::string& text, int64_t start, int64_t duration) {
    EXPECT_TRUE(stream_->decodePacket(packetOf(text, start, duration).get()));
  }

  TextSubtitle at(int64_t inMilliseconds) {
    return stream_->textSubtitleAt(milliseconds(inMilliseconds),
                                   {.area = {{0, 0}, {200, 100}},
                                    .picture = {200, 100},
                                    .font = {.family = "DejaVu Sans", .size = 20}});
  }

  HandMadeContainer container_;
  std::unique_ptr<LMFFMediaStream> stream_;
};

TEST_F(LMFFMediaStreamStyledText, PlainTextIsMarkupFromItsStartToBeforeItsEnd) {
  add("<i>Hello</i>", 1000, 500);
  const TextSubtitle shown{"<i>Hello</i>", nullptr};
  EXPECT_EQ(at(999), TextSubtitle());
  EXPECT_EQ(at(1000), shown);
  EXPECT_EQ(at(1499), shown);
  EXPECT_EQ(at(1500), TextSubtitle());
}

TEST_F(LMFFMediaStreamStyledText, TextWithAPlaceIsAPictureThere) {
  add("{\\an8}Above", 1000, 500);
  const TextSubtitle shown = at(1000);
  EXPECT_EQ(shown.markup, std::nullopt);
  ASSERT_TRUE(shown.image);
  EXPECT_GT(shown.image->extent().origin.y, 50);
  EXPECT_EQ(at(1400).image, shown.image);
  EXPECT_EQ(at(1500), TextSubtitle());
}

TEST_F(LMFFMediaStreamStyledText, PlainTextBesideItIsDrawnToo) {
  add("{\\an8}Above", 1000, 1000);
  add("Below", 1500, 1000);
  const Rect one = at(1400).image->extent();
  const Rect both = at(1500).image->extent();
  EXPECT_GT(one.origin.y, 50);
  EXPECT_LT(both.origin.y, 50);
  EXPECT_EQ(at(2000), (TextSubtitle{"Below", nullptr}));
}

TEST_F(LMFFMediaStreamStyledText, NothingIsLeftAfterASeek) {
  add("{\\an8}Above", 1000, 500);
  EXPECT_TRUE(at(1000).image);
  stream_->seek(0);
  EXPECT_EQ(at(1000), TextSubtitle());
  add("{\\an8}Above", 1000, 500);
  EXPECT_TRUE(at(1000).image);
}

TEST_F(LMFFMediaStreamText, FrameCarriesTimeAndLengthInTheStreamsTimeBase) {
  shown("text");
  const AVFrame& frame = *stream_->frame();
  EXPECT_TRUE(stream_->hasFrame());
  EXPECT_EQ(frame.pts, 250);
  EXPECT_EQ(frame.pkt_dts, 250);
  EXPECT_EQ(frameDuration(frame), 150);
}

TEST_F(LMFFMediaStreamText, NextLineReplacesTheText) {
  shown("one");
  EXPECT_EQ(shown("two"), "two");
}

TEST_F(LMFFMediaStreamText, EmptyPacketKeepsTheText) {
  shown("one");
  EXPECT_FALSE(stream_->decodePacket(makePacket().get()));
  EXPECT_EQ(stream_->subtitleString(), "one");
}

TEST_F(LMFFMediaStreamText, MarkupHonoursTheStylesOfTheScript) {
  const std::string header =
      "[Script Info]\r\nScriptType: v4.00+\r\n\r\n[V4+ Styles]\r\n"
      "Format: Name, Fontname, Bold, Italic, Underline, StrikeOut\r\n"
      "Style: Default,Sans,0,0,0,0\r\nStyle: Narrator, Sans, -1, 1, 0, 0\r\n"
      "Style: Light,Sans,400,0,0,-1\r\nStyle: Heavy,Sans,700,0,1,0\r\n\r\n"
      "[Events]\r\nFormat: Layer, Start, End, Style, Name, MarginL, MarginR, MarginV, Effect, "
      "Text\r\n";
  AVStream* stream = container_.addStream(AVMEDIA_TYPE_SUBTITLE, AV_CODEC_ID_ASS, {1, 100});
  auto* bytes = static_cast<uint8_t*>(av_mallocz(header.size() + AV_INPUT_BUFFER_PADDING_SIZE));
  std::memcpy(bytes, header.data(), header.size());
  stream->codecpar->extradata = bytes;
  stream->codecpar->extradata_size = static_cast<int>(header.size());
  stream_ = openedStream(stream);
  const auto inStyle = [&](const std::string& style, const std::string& text) {
    start_ += 200;
    stream_->decodePacket(packetOf("0,0," + style + ",,0,0,0,," + text, start_, 150).get());
    return stream_->subtitleMarkupAt(start_ + 1).value_or("none");
  };
  EXPECT_EQ(inStyle("Default", "plain"), "plain");
  EXPECT_EQ(inStyle("Narrator", "a, {\\i0}b"), "<b><i>a, </i></b><b>b</b>");
  EXPECT_EQ(inStyle("Light", "a"), "<s>a</s>");
  EXPECT_EQ(inStyle("Heavy", "a{\\b0\\i1}b{\\r}c"),
            "<b><u>a</u></b><i><u>b</u></i><b><u>c</u></b>");
  EXPECT_EQ(inStyle("Default", "a{\\rNarrator}b"), "a<b><i>b</i></b>");
  EXPECT_EQ(inStyle("Unknown", "a"), "a");
}

// Colours of discs.

class LMFFMediaStreamPalette : public testing::Test {
 protected:
  LMFFMediaStreamPalette() {
    stream_.setStream(container_.addStream(AVMEDIA_TYPE_SUBTITLE, AV_CODEC_ID_DVD_SUBTITLE));
  }

  /// The text that the decoder is given for a palette with this first entry, up to its end.
  std::string textFor(uint32_t first) {
    SubtitlePalette palette = kBlack;
    palette[0] = first;
    stream_.fillPalette(palette);
    return reinterpret_cast<const char*>(stream_.codecContext()->extradata);
  }

  std::string entryFor(uint32_t entry) {
    const std::string text = textFor(entry);
    return text.substr(8, text.find(',') - 8);
  }

  HandMadeContainer container_;
  LMFFMediaStream stream_;
};

TEST_F(LMFFMediaStreamPalette, IsTextOfSixteenColours) {
  std::string black;
  for (int i = 0; i < 15; ++i) black += "101010,";
  EXPECT_EQ(textFor(0x108080), "palette:101010," + black + "\n\r");
}

TEST_F(LMFFMediaStreamPalette, SizeIsAlways256) {
  textFor(0x108080);
  EXPECT_EQ(stream_.codecContext()->extradata_size, 256);
  textFor(0xFFFFFF);
  EXPECT_EQ(stream_.codecContext()->extradata_size, 256);
}

TEST_F(LMFFMediaStreamPalette, PaddingIsZero) {
  textFor(0x108080);
  const uint8_t* bytes = stream_.codecContext()->extradata;
  const size_t length = std::strlen(reinterpret_cast<const char*>(bytes));
  const std::vector<uint8_t> rest(bytes + length, bytes + 256 + AV_INPUT_BUFFER_PADDING_SIZE);
  EXPECT_THAT(rest, testing::Each(0));
}

TEST_F(LMFFMediaStreamPalette, GreyHasThreeEqualComponents) {
  EXPECT_EQ(textFor(0xEB8080).substr(0, 15), "palette:ebebeb,");
}

TEST_F(LMFFMediaStreamPalette, LeadingZerosAreNotPrinted) {
  EXPECT_EQ(entryFor(0x008080), "0");
  // 5 + 1.779 × 1 = 6.779, 5 - 0.3455 × 1 = 4.6545
  EXPECT_EQ(entryFor(0x058081), "50406");
}

TEST_F(LMFFMediaStreamPalette, ComponentsAreCutTowardsZero) {
  // Y 100, Cr 10, Cb -10: R 114.075, G 100 + 3.455 - 7.169 = 96.286, B 100 - 17.79 = 82.21
  EXPECT_EQ(entryFor(0x648A76), "726052");
}

TEST_F(LMFFMediaStreamPalette, ComponentAboveItsRangeSpillsIntoItsNeighbour) {
  // Y 255, Cr 127: R 433.75 -> 0x1B1 << 16; G 255 - 91.0463 = 163 -> A3; B 255
  EXPECT_EQ(entryFor(0xFFFF80), "1b1a3ff");
  // Cb 127: B 255 + 225.933 = 480 -> 0x1E0 and G 255 - 43.8785 = 211 -> 0xD3: D3 | 1 in their bits
  EXPECT_EQ(entryFor(0xFF80FF), "ffd3e0");
}

TEST_F(LMFFMediaStreamPalette, NegativeComponentFillsTheBitsAbove) {
  // Y 0, Cb -128: B -227.712 -> -227, whose upper 24 bits are all ones
  EXPECT_EQ(entryFor(0x008000), "ffffff1d");
}

TEST_F(LMFFMediaStreamPalette, EveryColourFollowsTheFormula) {
  for (uint32_t y = 0; y < 256; y += 15) {
    for (uint32_t cr = 0; cr < 256; cr += 17) {
      for (uint32_t cb = 0; cb < 256; cb += 17) {
        const double dCr = static_cast<double>(cr) - 128;
        const double dCb = static_cast<double>(cb) - 128;
        const auto r = static_cast<int64_t>(std::trunc(y + 1.4075 * dCr));
        const auto g = static_cast<int64_t>(std::trunc(y - 0.3455 * dCb - 0.7169 * dCr));
        const auto b = static_cast<int64_t>(std::trunc(y + 1.779 * dCb));
        const auto value = static_cast<uint32_t>(r * 65536 | g * 256 | b);
        ASSERT_EQ(std::stoul(entryFor(y << 16 | cr << 8 | cb), nullptr, 16), value);
      }
    }
  }
}

TEST_F(LMFFMediaStreamPalette, StaysWhenTheStreamIsClosedAndOpenedAgain) {
  const std::string text = textFor(0xEB8080);
  stream_.open();
  stream_.close();
  stream_.open();
  EXPECT_EQ(reinterpret_cast<const char*>(stream_.codecContext()->extradata), text);
}

// Bitmaps: a subpicture over the pictures of a media.

class LMFFMediaStreamBitmap : public testing::Test {
 protected:
  LMFFMediaStreamBitmap() : media_(openedMedia(fixture("av25.mp4"))) {
    stream_.setMedia(media_.get());
    stream_.setStream(
        container_.addStream(AVMEDIA_TYPE_SUBTITLE, AV_CODEC_ID_DVD_SUBTITLE, {1, 90000}));
    SubtitlePalette palette = kBlack;
    palette[5] = 0x64'8A'76;  // RGB 114, 96, 82
    stream_.fillPalette(palette);
    stream_.open();
  }

  bool decode(const Subpicture& picture, int64_t pts) {
    return stream_.decodePacket(packetOf(subpictureBytes(picture), pts).get());
  }

  static constexpr Subpicture kPicture{
      .x = 20, .y = 30, .width = 11, .height = 7, .paletteIndex = 5, .start = 0, .end = 90};

  std::shared_ptr<LMFFMedia> media_;  // 320 × 180
  HandMadeContainer container_;
  LMFFMediaStream stream_;
};

TEST_F(LMFFMediaStreamBitmap, NoneBeforeTheFirst) { EXPECT_EQ(stream_.subtitle(), nullptr); }

TEST_F(LMFFMediaStreamBitmap, IsPlacedFromTheLowerLeftCorner) {
  ASSERT_TRUE(decode(kPicture, 0));
  ASSERT_TRUE(stream_.subtitle());
  EXPECT_EQ(stream_.subtitle()->extent(), (Rect{{20, 180 - 30 - 7}, {11, 7}}));
}

TEST_F(LMFFMediaStreamBitmap, HasItsColourFromThePalette) {
  decode(kPicture, 0);
  ASSERT_TRUE(stream_.subtitle());
  const auto& bitmap = stream_.subtitle()->bitmap();
  ASSERT_EQ(bitmap->width(), 11);
  ASSERT_EQ(bitmap->height(), 7);
  for (int y = 0; y < bitmap->height(); ++y) {
    for (int x = 0; x < bitmap->width(); ++x) {
      const uint8_t* pixel = bitmap->row(y) + x * 4;
      ASSERT_THAT(std::vector<int>(pixel, pixel + 4), ElementsAre(114, 96, 82, 255));
    }
  }
}

TEST_F(LMFFMediaStreamBitmap, FrameCarriesTimeAndLength) {
  // Shown from 90 × 1024 / 90000 s after the packet's time to 180 × 1024 / 90000 s after it; the
  // decoder tells these in whole milliseconds: 1024 and 2048.
  Subpicture picture = kPicture;
  picture.start = 90;
  picture.end = 180;
  decode(picture, 450000);
  const AVFrame& frame = *stream_.frame();
  EXPECT_EQ(frame.pts, 450000 + 1024 * 90);
  EXPECT_EQ(frameDuration(frame), 1024 * 90);
  EXPECT_TRUE(stream_.hasFrame());
}

TEST_F(LMFFMediaStreamBitmap, NextOneReplacesIt) {
  decode(kPicture, 0);
  Subpicture other = kPicture;
  other.width = 13;
  decode(other, 180000);
  EXPECT_EQ(stream_.subtitle()->extent().size.width, 13);
}

TEST_F(LMFFMediaStreamBitmap, OutlivesTheStreamsNextOne) {
  decode(kPicture, 0);
  const auto kept = stream_.subtitle();
  stream_.seek(0);
  EXPECT_EQ(stream_.subtitle(), nullptr);
  EXPECT_EQ(kept->bitmap()->row(6)[0], 114);
}

// Pictures of 320 × 180; the subtitle covers 20 to 31 across and 30 to 37 from above.
TEST_F(LMFFMediaStreamBitmap, IsShownInProportionToTheCanvasThatItWasMadeFor) {
  const auto shownFor = [this](int width, int height, const Subpicture& picture = kPicture) {
    stream_.seek(0);
    stream_.codecContext()->width = width;
    stream_.codecContext()->height = height;
    decode(picture, 0);
    return stream_.subtitleAt(1)->extent();
  };
  EXPECT_EQ(shownFor(0, 0), (Rect{{20, 143}, {11, 7}}));
  EXPECT_EQ(shownFor(320, 180), (Rect{{20, 143}, {11, 7}}));
  // A larger disc: half as large, and so its distances to the edges.
  EXPECT_EQ(shownFor(640, 360 * 2), (Rect{{10, 180 - 18.5}, {5.5, 3.5}}));  // cropped, from above
  EXPECT_EQ(shownFor(1280, 720), (Rect{{5, 180 - 37 / 4.0}, {11 / 4.0, 7 / 4.0}}));
  // The same canvas near its lower edge, whose last 90 lines and first 90 the video lacks.
  Subpicture low = kPicture;
  low.y = 320;
  EXPECT_EQ(shownFor(320, 360, low), (Rect{{20, 360 - 327}, {11, 7}}));
  // Lines and columns of an older disc are stretched by themselves.
  EXPECT_EQ(shownFor(160, 360), (Rect{{40, (360 - 37) / 2.0}, {22, 3.5}}));
  // What a host asks for without a time stays as it was stored.
  EXPECT_EQ(stream_.subtitle()->extent(), (Rect{{20, 143}, {11, 7}}));
}

TEST_F(LMFFMediaStreamBitmap, LeavesTheTextAlone) {
  stream_.setSubtitleString("text");
  decode(kPicture, 0);
  EXPECT_EQ(stream_.subtitleString(), "text");
}

}  // namespace
}  // namespace kestrel::test
