#include <gmock/gmock.h>

#include <fstream>

#include "tests/e2e/Look.h"
#include "tests/support/Fixture.h"

namespace kestrel::test {
namespace {

namespace fs = std::filesystem;

class ConvertSubtitles : public LookTest {
 protected:
  /// A black movie of three seconds.
  fs::path black() { return made("black.mkv", "color=black:s=320x180:r=25:d=3"); }

  fs::path written(const std::string& name, const std::string& bytes) {
    const auto file = folder_ / name;
    std::ofstream(file, std::ios::binary) << bytes;
    return file;
  }

  static constexpr const char* kCue = "1\n00:00:01,000 --> 00:00:02,000\n";
};

TEST_F(ConvertSubtitles, ShowAtTheirTimes) {
  const auto text = written("a.srt", std::string(kCue) + "Hello there\n");
  const auto output = converted(black(), {"--subtitles", text.string()});
  EXPECT_EQ(Pixels(output, 0.8, 320).bright(), 0);
  EXPECT_GT(Pixels(output, 1.5, 320).bright(), 100);
  EXPECT_EQ(Pixels(output, 2.2, 320).bright(), 0);
}

TEST_F(ConvertSubtitles, CanBeReadOnWhite) {
  const auto text = written("a.srt", std::string(kCue) + "HHHH\n");
  const auto white = made("white.mkv", "color=white:s=320x180:r=25:d=3");
  const auto darkest = [&](const Arguments& options) {
    const Pixels shown(converted(white, joined({"--subtitles", text.string()}, options)), 1.5, 320);
    int least = 255;
    for (int y = 0; y < 180; ++y)
      for (int x = 0; x < 320; ++x) least = std::min(least, shown.at(x, y)[1]);
    return least;
  };
  EXPECT_LT(darkest({"--subtitle-outline", "2"}), 60);
  EXPECT_LT(darkest({}), 128);
  EXPECT_GT(darkest({"--subtitle-outline", "0"}), 240);
}

/// How often a row of green values goes from one side of a limit to the other and back.
int runsBeyond(const Pixels& picture, int width, int y, bool isDark, int limit) {
  int runs = 0;
  bool was = false;
  for (int x = 0; x < width; ++x) {
    const int value = picture.at(x, y)[1];
    const bool is = isDark ? value <= limit : value >= limit;
    runs += is && !was ? 1 : 0;
    was = is;
  }
  return runs;
}

TEST_F(ConvertSubtitles, StandOutFromWhiteAndFromBlack) {
  // Beside white, grey of 118 has the contrast of 4.5 to 1 that WCAG 2.1 asks of text; beside black
  // 117 has it.
  constexpr int kEnough = 118;
  const auto text = written("a.srt", std::string(kCue) + "H H H H\n");
  for (const auto& [width, height] : {std::pair{320, 180}, {640, 360}, {1280, 720}}) {
    SCOPED_TRACE(width);
    const auto shown = [&, w = width, h = height](const std::string& color) {
      const auto source = made("plain.mkv", "color=" + color + ":s=" + std::to_string(w) + "x" +
                                                std::to_string(h) + ":r=2:d=2");
      return Pixels(converted(source, {"--subtitles", text.string()}), 1.5, w);
    };
    const Pixels onWhite = shown("white");
    const Pixels onBlack = shown("black");
    // Through the letters' upper halves go two strokes each, with an edge at either side.
    int y = 0;
    while (y < height && onBlack.brightInRow(y) == 0) ++y;
    y += height / 100;
    EXPECT_EQ(runsBeyond(onWhite, width, y, true, kEnough), 16);
    EXPECT_EQ(runsBeyond(onBlack, width, y, false, kEnough), 8);
  }
}

TEST_F(ConvertSubtitles, KeepTheWholeSentence) {
  const auto part = written("part.srt", std::string(kCue) + " of course\n");
  const auto whole = written("whole.srt", std::string(kCue) + "Well, yes, of course\n");
  const auto source = black();
  const int ofPart = Pixels(converted(source, {"--subtitles", part.string()}), 1.5, 320).bright();
  EXPECT_GT(Pixels(converted(source, {"--subtitles", whole.string()}), 1.5, 320).bright(),
            ofPart * 3 / 2);
}

TEST_F(ConvertSubtitles, AreReadInWhateverEncodingTheyAre) {
  const auto source = black();
  const auto shown = [&](const fs::path& text) {
    return pictureBytes(
        converted(source, {"--subtitles", text.string(), "--start", "1.5", "--duration", "0.1"}),
        "format=gray");
  };
  const std::string utf8 = std::string(kCue) + "Él comió piñas, ¿verdad? Será mañana.\n";
  std::string latin = kCue;
  latin +=
      "\xC9l comi\xF3 pi\xF1"
      "as, \xBFverdad? Ser\xE1 ma\xF1"
      "ana.\n";
  std::string utf16 = "\xFF\xFE";
  for (const char32_t c : std::u32string(U"1\n00:00:01,000 --> 00:00:02,000\nÉl comió piñas, "
                                         U"¿verdad? Será mañana.\n")) {
    utf16 += static_cast<char>(c & 0xFF);
    utf16 += static_cast<char>(c >> 8);
  }
  const std::string expected = shown(written("utf8.srt", utf8));
  EXPECT_EQ(shown(written("bom.srt", "\xEF\xBB\xBF" + utf8)), expected);
  EXPECT_EQ(shown(written("latin.srt", latin)), expected);
  EXPECT_EQ(shown(written("utf16.srt", utf16)), expected);
}

TEST_F(ConvertSubtitles, AreReadInTheEncodingsOfOtherScripts) {
  const auto source = black();
  const auto shown = [&](const fs::path& text) {
    return pictureBytes(
        converted(source, {"--subtitles", text.string(), "--start", "1.5", "--duration", "0.1"}),
        "format=gray");
  };
  for (const auto& [encoding, words] :
       {std::pair{"WINDOWS-1251", "Привет, мир! Как у вас дела сегодня?\nВсё хорошо, спасибо."},
        {"SHIFT_JIS", "こんにちは、世界。\n今日はいい天気ですね。"},
        {"UTF-16LE", "Привет, 世界!"},
        {"UTF-16BE", "Привет, 世界!"}}) {
    SCOPED_TRACE(encoding);
    // As iconv writes it; the mark of UTF-16 is a character before the text.
    const bool hasMark = std::string(encoding).starts_with("UTF-16");
    const RunResult made =
        run({"sh", "-c",
             "printf '%s' \"$1\" > utf8.srt && printf '%s' \"$2$1\" | iconv -f UTF-8 -t \"$3\" > "
             "other.srt",
             "sh", std::string(kCue) + words + "\n", hasMark ? "\uFEFF" : "", encoding},
            {.workingDirectory = folder_.path()});
    ASSERT_EQ(made.status, 0) << made.err;
    const std::string expected = shown(folder_ / "utf8.srt");
    EXPECT_GT(std::ranges::count_if(expected, [](char c) { return static_cast<uint8_t>(c) > 128; }),
              100);
    EXPECT_EQ(shown(folder_ / "other.srt"), expected);
  }
}

TEST_F(ConvertSubtitles, HaveColourFontAndPlaceAsAsked) {
  const auto text = written("a.srt", std::string(kCue) + "HHHHHHHH\n");
  const auto output =
      converted(black(), {"--subtitles", text.string(), "--subtitle-color", "#FF0000",
                          "--subtitle-font", "DejaVu Sans Bold 40", "--subtitle-position", "0.5"});
  const Pixels shown(output, 1.5, 320);
  int top = 180;
  int bottom = -1;
  for (int y = 0; y < 180; ++y)
    for (int x = 0; x < 320; ++x)
      if (const Rgb c = shown.at(x, y); c[0] > 128) {
        EXPECT_LT(c[1], 80);
        top = std::min(top, y);
        bottom = std::max(bottom, y);
      }
  EXPECT_LT(bottom, 90);             // nothing below the middle
  EXPECT_NEAR(bottom - top, 29, 3);  // capitals of this font are 0.73 of its size high
}

}  // namespace
}  // namespace kestrel::test
