#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <iterator>

#include "tests/e2e/Look.h"

namespace kestrel::test {
namespace {

namespace fs = std::filesystem;

constexpr int kWidth = 320;
constexpr int kHeight = 180;

const char* const kScript =
    "[Script Info]\nScriptType: v4.00+\nPlayResX: 320\nPlayResY: 180\n"
    "ScaledBorderAndShadow: yes\n\n"
    "[V4+ Styles]\nFormat: Name, Fontname, Fontsize, PrimaryColour, SecondaryColour, "
    "OutlineColour, BackColour, Bold, Italic, Underline, StrikeOut, ScaleX, ScaleY, Spacing, "
    "Angle, BorderStyle, Outline, Shadow, Alignment, MarginL, MarginR, MarginV, Encoding\n"
    "Style: Default,DejaVu Sans,20,&H00FFFFFF,&H000000FF,&H00000000,&H80000000,0,0,0,0,100,100,0,0,"
    "1,2,1,2,10,10,10,1\n"
    "Style: Top,FONT,18,&H00C0C0C0,&H000000FF,&H00404040,&H80000000,-1,0,0,0,100,100,0,0,"
    "1,1,0,8,10,10,10,1\n\n"
    "[Events]\nFormat: Layer, Start, End, Style, Name, MarginL, MarginR, MarginV, Effect, Text\n"
    "Dialogue: 0,0:00:00.00,0:00:01.00,Default,,0,0,0,,Plain {\\i1}words{\\i0}, and a comma\n"
    "Dialogue: 0,0:00:00.20,0:00:01.00,Top,,0,0,0,,At the top\n"
    "Dialogue: 1,0:00:00.00,0:00:00.60,Default,,0,0,0,,{\\an5\\pos(160,90)\\frz20\\blur2}Turned\n"
    "Dialogue: 0,0:00:00.00,0:00:01.00,Default,,0,0,0,,{\\an1\\pos(10,150)\\k40}Ka{\\k40}ra\n";

class ConvertStyledSubtitles : public LookTest {
 protected:
  fs::path grey() { return made("grey.mkv", "color=0x808080:s=320x180:r=5:d=1"); }

  fs::path written(const std::string& name, const std::string& text) {
    std::ofstream(folder_ / name, std::ios::binary) << text;
    return folder_ / name;
  }

  /// A script whose upper line is in the font of a family.
  static std::string scriptWith(const std::string& family) {
    std::string script = kScript;
    return script.replace(script.find("FONT"), 4, family);
  }

  fs::path lossless(const fs::path& source, const Arguments& options, const std::string& name) {
    const auto output = folder_ / name;
    EXPECT_TRUE(converts(source, output, joined(options, {"--video-codec", "ffv1"})));
    return output;
  }

  fs::path drawnByFfmpeg(const fs::path& source, const std::string& filter) {
    const auto output = folder_ / "reference.mkv";
    ffmpeg({"-y", "-i", source.string(), "-vf", filter, "-c:v", "ffv1", output.string()});
    return output;
  }

  /// The rows of a picture that are brighter than its background, from the first to the last.
  static std::pair<int, int> rowsWithText(const std::string& picture) {
    std::pair<int, int> rows{kHeight, -1};
    for (int i = 0; i < kWidth * kHeight; ++i)
      if (static_cast<uint8_t>(picture[static_cast<size_t>(i)]) > 180)
        rows = {std::min(rows.first, i / kWidth), i / kWidth};
    return rows;
  }
};

/// Whether ffmpeg's picture changes so little around a pixel that no edge is near.
bool isFlat(const std::string& picture, int width, int x, int y) {
  int low = 255;
  int high = 0;
  for (int dy = -1; dy <= 1; ++dy)
    for (int dx = -1; dx <= 1; ++dx) {
      const int value =
          static_cast<uint8_t>(picture[static_cast<size_t>((y + dy) * width + x + dx)]);
      low = std::min(low, value);
      high = std::max(high, value);
    }
  return high - low <= 4;
}

/// Expects two planes to be the same but for antialiasing: within 2 where ffmpeg's is flat.
void expectAlike(const std::string& ours, const std::string& theirs, int width = kWidth) {
  ASSERT_EQ(ours.size(), theirs.size());
  const int height = static_cast<int>(theirs.size()) / width;
  int flat = 0;
  int marked = 0;
  int worst = 0;
  for (int y = 1; y < height - 1; ++y)
    for (int x = 1; x < width - 1; ++x) {
      const auto at = static_cast<size_t>(y * width + x);
      const int difference =
          std::abs(static_cast<uint8_t>(ours[at]) - static_cast<uint8_t>(theirs[at]));
      if (std::abs(static_cast<uint8_t>(theirs[at]) - 128) > 40) ++marked;
      if (!isFlat(theirs, width, x, y)) continue;
      ++flat;
      worst = std::max(worst, difference);
    }
  EXPECT_GT(marked, width * height / 30);  // there is something to compare
  EXPECT_GT(flat, width * height * 2 / 3);
  EXPECT_LE(worst, 2);
}

double meanDifference(const std::string& a, const std::string& b) {
  int64_t sum = 0;
  for (size_t i = 0; i < a.size(); ++i)
    sum += std::abs(static_cast<uint8_t>(a[i]) - static_cast<uint8_t>(b[i]));
  return static_cast<double>(sum) / static_cast<double>(a.size());
}

void expectAlike(const std::vector<std::string>& ours, const std::vector<std::string>& theirs) {
  ASSERT_EQ(ours.size(), 5u);
  ASSERT_EQ(theirs.size(), 5u);
  for (size_t i = 0; i < ours.size(); ++i) {
    SCOPED_TRACE(i);
    expectAlike(ours[i], theirs[i]);
  }
}

TEST_F(ConvertStyledSubtitles, AScriptLooksAsFfmpegDrawsIt) {
  const auto source = grey();
  const auto script = written("script.ass", scriptWith("DejaVu Serif"));
  const auto ours =
      greyPictures(lossless(source, {"--subtitles", script.string()}, "ours.mkv"), kWidth, kHeight);
  const auto theirs =
      greyPictures(drawnByFfmpeg(source, "ass=" + script.string()), kWidth, kHeight);
  expectAlike(ours, theirs);
  for (size_t i = 0; i < ours.size(); ++i) EXPECT_LT(meanDifference(ours[i], theirs[i]), 0.3) << i;
}

TEST_F(ConvertStyledSubtitles, SoDoesOneOfTheOlderForm) {
  const auto source = grey();
  const auto script =
      written("script.ssa",
              "[Script Info]\nScriptType: v4.00\nPlayResX: 320\nPlayResY: 180\n\n[V4 Styles]\n"
              "Format: Name, Fontname, Fontsize, PrimaryColour, SecondaryColour, TertiaryColour, "
              "BackColour, "
              "Bold, Italic, BorderStyle, Outline, Shadow, Alignment, MarginL, MarginR, MarginV, "
              "AlphaLevel, Encoding\n"
              // 6 is the middle of the top there.
              "Style: Default,DejaVu Sans,30,65535,255,0,0,-1,0,1,2,0,6,10,10,10,0,1\n\n[Events]\n"
              "Format: Marked, Start, End, Style, Name, MarginL, MarginR, MarginV, Effect, Text\n"
              "Dialogue: Marked=0,0:00:00.00,0:00:01.00,Default,,0000,0000,0000,,Yellow above\n");
  const auto ours =
      greyPictures(lossless(source, {"--subtitles", script.string()}, "ours.mkv"), kWidth, kHeight);
  expectAlike(ours, greyPictures(drawnByFfmpeg(source, "ass=" + script.string()), kWidth, kHeight));
  EXPECT_LT(rowsWithText(ours[0]).second, kHeight / 3);
}

TEST_F(ConvertStyledSubtitles, ColoursAreThoseOfTheScript) {
  const auto source = grey();
  const std::string text = scriptWith("DejaVu Serif");
  const std::string large = "{\\an5\\fs90\\b1\\bord6\\1c&H2060FF&\\3c&HA01000&\\1a&H40&}WORD";
  const auto script = written(
      "script.ass", text + "Dialogue: 2,0:00:00.00,0:00:01.00,Default,,0,0,0,," + large + "\n");
  const auto reference = drawnByFfmpeg(source, "ass=" + script.string());
  const auto ours = lossless(source, {"--subtitles", script.string()}, "ours.mkv");
  for (const char* plane : {"y", "u", "v"}) {
    SCOPED_TRACE(plane);
    const auto planes = [&](const fs::path& file) {
      return pictureBytes(file,
                          std::string("select=eq(n\\,2),extractplanes=") + plane + ",format=gray");
    };
    expectAlike(planes(ours), planes(reference), *plane == 'y' ? kWidth : kWidth / 2);
  }
}

/// The rectangle of all samples in which two planes differ, within some rows; nothing where they do
/// not.
struct Touched {
  int left = kWidth;
  int right = -1;
  int top = kHeight;
  int bottom = -1;

  bool holds(int x, int y) const { return x >= left && x <= right && y >= top && y <= bottom; }
};

Touched touched(const std::string& before, const std::string& after, int width, int firstRow,
                int endRow) {
  Touched area;
  for (int y = firstRow; y < endRow; ++y)
    for (int x = 0; x < width; ++x) {
      const auto at = static_cast<size_t>(y * width + x);
      if (before[at] == after[at]) continue;
      area = {std::min(area.left, x), std::max(area.right, x), std::min(area.top, y),
              std::max(area.bottom, y)};
    }
  return area;
}

TEST_F(ConvertStyledSubtitles, PixelsBesideTheTextsStay) {
  const auto source = made("pattern.mkv", "testsrc2=s=320x180:r=5:d=0.2,format=yuv420p");
  std::string text = kScript;
  text.resize(text.find("Dialogue:"));
  const auto script =
      written("two.ass", text +
                             "Dialogue: 0,0:00:00.00,0:00:01.00,Default,,0,0,0,,Below\n"
                             "Dialogue: 0,0:00:00.00,0:00:01.00,Default,,0,0,0,,{\\an8}Above\n");
  const auto reference = drawnByFfmpeg(source, "ass=" + script.string());
  const auto ours = lossless(source, {"--subtitles", script.string()}, "ours.mkv");
  for (const auto& [plane, divisor] : {std::pair{"y", 1}, {"u", 2}, {"v", 2}}) {
    SCOPED_TRACE(plane);
    const int width = kWidth / divisor;
    const int height = kHeight / divisor;
    const auto planeOf = [&, name = plane](const fs::path& file) {
      return pictureBytes(file, std::string("extractplanes=") + name + ",format=gray");
    };
    const std::string before = planeOf(source);
    const std::string theirs = planeOf(reference);
    const std::string drawn = planeOf(ours);
    ASSERT_EQ(before.size(), static_cast<size_t>(width * height));
    ASSERT_EQ(drawn.size(), before.size());
    for (const int first : {0, height / 2}) {
      const Touched visible = touched(before, theirs, width, first, first + height / 2);
      const Touched changed = touched(before, drawn, width, first, first + height / 2);
      ASSERT_GT(visible.right, visible.left);
      // A block of chroma, and the faintest edge of the letters' shadows.
      EXPECT_GE(changed.left, visible.left - 4);
      EXPECT_LE(changed.right, visible.right + 4);
      EXPECT_GE(changed.top, visible.top - 4);
      EXPECT_LE(changed.bottom, visible.bottom + 4);
      EXPECT_LT(changed.right - changed.left, width / 2);
      EXPECT_LT(changed.bottom - changed.top, height / 4);
    }
  }
}

TEST_F(ConvertStyledSubtitles, ThumbnailsAndSheetsShowThemAsConversionsDo) {
  const auto source = grey();
  const auto script = written("script.ass", scriptWith("DejaVu Serif"));
  const Arguments drawing{"--subtitles", script.string()};
  const auto pictures = greyPictures(lossless(source, drawing, "ours.mkv"), kWidth, kHeight);
  const auto thumb = [&](const std::string& name, const Arguments& options) {
    const auto picture = folder_ / name;
    EXPECT_EQ(
        run(joined({kestrelBinary(), "thumb", source.string(), picture.string()}, options)).status,
        0);
    return pictureBytes(picture, "format=gray");
  };
  expectAlike(thumb("still.png", joined(drawing, {"--time", "0.5"})), pictures[2]);
  const auto bright = [](const std::string& bytes) {
    return std::ranges::count_if(bytes,
                                 [](char value) { return static_cast<uint8_t>(value) > 200; });
  };
  EXPECT_GT(bright(thumb("sheet.png", joined(drawing, {"--sheet", "1x1"}))),
            bright(thumb("plain.png", {"--sheet", "1x1"})) + 200);
}

TEST_F(ConvertStyledSubtitles, TagsOfSubRipPlaceAndColourUnlessIgnored) {
  const auto source = grey();
  const auto text = written("text.srt",
                            "1\n00:00:00,000 --> 00:00:00,500\nA plain one\n\n"
                            "2\n00:00:00,500 --> 00:00:01,000\n{\\an8}At the top\n\n");
  const auto styled =
      greyPictures(lossless(source, {"--subtitles", text.string()}, "styled.mkv"), kWidth, kHeight);
  const auto alike =
      greyPictures(lossless(source, {"--subtitles", text.string(), "--ignore-styles"}, "alike.mkv"),
                   kWidth, kHeight);
  ASSERT_EQ(styled.size(), 5u);
  EXPECT_TRUE(styled[0] == alike[0]);
  EXPECT_LT(rowsWithText(styled[4]).second, kHeight / 4);
  EXPECT_GT(rowsWithText(alike[4]).first, kHeight * 3 / 4);
  // Both kinds are as large, and as far from their edge.
  const auto [top, bottom] = rowsWithText(styled[4]);
  const auto [upper, lower] = rowsWithText(alike[4]);
  EXPECT_NEAR(bottom - top, lower - upper, 2);
}

TEST_F(ConvertStyledSubtitles, CharactersAreReadByName) {
  const auto source = grey();
  const auto named =
      written("named.srt", "1\n00:00:00,000 --> 00:00:01,000\nTom &amp; J&eacute;r&#244;me\n\n");
  const auto plain = written("plain.srt", "1\n00:00:00,000 --> 00:00:01,000\nTom & Jérôme\n\n");
  EXPECT_TRUE(
      greyPictures(lossless(source, {"--subtitles", named.string()}, "a.mkv"), kWidth, kHeight) ==
      greyPictures(lossless(source, {"--subtitles", plain.string()}, "b.mkv"), kWidth, kHeight));
  // Another form of text has the characters themselves.
  const auto with = folder_ / "with.mkv";
  ffmpeg({"-i", source.string(), "-i", named.string(), "-map", "0", "-map", "1", "-c", "copy",
          with.string()});
  const auto output = folder_ / "out.mp4";
  ASSERT_TRUE(converts(with, output, {"--video-codec", "mpeg4"}));
  EXPECT_NE(ffmpeg({"-i", output.string(), "-map", "0:s", "-f", "srt", "-"}).find("Tom & Jérôme"),
            std::string::npos);
}

/// A font whose family has a name that no installed one has.
std::string renamedFont(const fs::path& file) {
  std::ifstream stream(file, std::ios::binary);
  std::string bytes(std::istreambuf_iterator<char>(stream), {});
  const std::string old = "DejaVu";
  const std::string next = "Quirky";
  const auto wide = [](const std::string& text) {
    std::string result;
    for (const char c : text) result += {'\0', c};
    return result;
  };
  for (const auto& [from, to] : {std::pair{old, next}, {wide(old), wide(next)}})
    for (size_t at = 0; (at = bytes.find(from, at)) != std::string::npos; at += to.size())
      bytes.replace(at, from.size(), to);
  return bytes;
}

TEST_F(ConvertStyledSubtitles, FontsThatComeAlongAreUsed) {
  // The style that uses it is bold.
  const fs::path font = "/usr/share/fonts/truetype/dejavu/DejaVuSansMono-Bold.ttf";
  if (!fs::exists(font)) GTEST_SKIP() << "there is no " << font;
  const auto source = grey();
  const auto attached = written("quirky.ttf", renamedFont(font));
  const auto with = folder_ / "with.mkv";
  const auto pictures = [&](const std::string& family, bool isAttached) {
    const auto script = written("script.ass", scriptWith(family));
    Arguments arguments{"-y", "-i", source.string(), "-i", script.string(), "-map", "0", "-map",
                        "1",  "-c", "copy"};
    if (isAttached)
      arguments = joined(arguments, {"-attach", attached.string(), "-metadata:s:t",
                                     "mimetype=application/x-truetype-font"});
    ffmpeg(joined(arguments, {with.string()}));
    return greyPictures(lossless(with, {"--subtitle-track", "0", "--force"}, "out.mkv"), kWidth,
                        kHeight);
  };
  const auto installed = pictures("DejaVu Sans Mono", false);
  const auto ours = pictures("Quirky Sans Mono", true);
  EXPECT_TRUE(ours == installed);
  expectAlike(ours,
              greyPictures(drawnByFfmpeg(with, "subtitles=" + with.string()), kWidth, kHeight));
  EXPECT_FALSE(pictures("Quirky Sans Mono", false) == installed);
}

}  // namespace
}  // namespace kestrel::test
