#include <gtest/gtest.h>
#include <kestrel/TextEncoding.h>

#include <fstream>
#include <random>
#include <string>
#include <string_view>

#include "tests/support/Process.h"
#include "tests/support/TempDir.h"

namespace kestrel {
namespace {

std::optional<std::string> decoded(std::string_view data) {
  return textFromData({reinterpret_cast<const uint8_t*>(data.data()), data.size()});
}

/// Two subtitles of a language, as their files have them.
std::string subtitles(const std::string& first, const std::string& second) {
  return "1\n00:00:01,000 --> 00:00:03,500\n" + first +
         "\n\n2\n00:00:04,000 --> 00:00:06,250\n<i>" + second + "</i>\n";
}

/// The text as `iconv` writes it in an encoding.
std::string encoded(const std::string& text, const std::string& encoding) {
  const test::TempDir folder;
  const auto file = folder.path() / "text";
  std::ofstream(file, std::ios::binary) << text;
  const auto result = test::run({"iconv", "-f", "UTF-8", "-t", encoding, file.string()});
  EXPECT_EQ(result.status, 0) << result.err;
  return result.out;
}

const std::string kFrench = subtitles("Où êtes-vous allé, mon chéri ?", "À la forêt, près d'ici.");
const std::string kGerman = subtitles("Schöne Grüße aus München!", "Das weiß ich überhaupt nicht.");
const std::string kSpanish = subtitles("¿Qué pasó mañana, señor?", "¡El niño está aquí también!");
const std::string kRussian = subtitles("Привет, как твои дела?", "Я не знаю, что сказать.");
const std::string kUkrainian = subtitles("Де ти був, мій друже?", "Її ще немає вдома.");
const std::string kJapanese = subtitles("お元気ですか？", "私は東京に住んでいます。");
const std::string kKatakana = subtitles("スーパーマーケット", "テレビとコーヒー");
const std::string kPolish =
    subtitles("Gdzie byłeś, mój przyjacielu?", "Nie wiem, co powiedzieć. Żółta łódź.");
const std::string kTurkish =
    subtitles("Nasılsın arkadaşım?", "Ne diyeceğimi bilmiyorum. İyi geceler, güneş doğdu.");
const std::string kBulgarian = subtitles("Къде беше, приятелю?", "Не знам какво да кажа.");
const std::string kGreek = subtitles("Πού ήσουν, φίλε μου;", "Δεν ξέρω τι να πω.");
const std::string kHebrew = subtitles("איפה היית, ידידי?", "אני לא יודע מה לומר.");
const std::string kKorean = subtitles("안녕하세요, 어디에 있었어요?", "할 말이 없어요.");
const std::string kTaiwanese = subtitles("你好，你今天怎麼樣？", "我不知道該說什麼。");
const std::string kChinese = subtitles("你好，你今天怎么样？", "我不知道该说什么。");

struct Encoded {
  const char* name;
  const char* encoding;
  const std::string* text;
};

class TextEncodingOfLanguageTest : public testing::TestWithParam<Encoded> {};

TEST_P(TextEncodingOfLanguageTest, IsRecognised) {
  EXPECT_EQ(decoded(encoded(*GetParam().text, GetParam().encoding)), *GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(
    All, TextEncodingOfLanguageTest,
    testing::Values(Encoded{"FrenchUtf8", "UTF-8", &kFrench},
                    Encoded{"JapaneseUtf8", "UTF-8", &kJapanese},
                    Encoded{"FrenchUtf16LE", "UTF-16LE", &kFrench},
                    Encoded{"RussianUtf16LE", "UTF-16LE", &kRussian},
                    Encoded{"JapaneseUtf16BE", "UTF-16BE", &kJapanese},
                    Encoded{"FrenchLatin1", "ISO-8859-1", &kFrench},
                    Encoded{"GermanLatin1", "ISO-8859-1", &kGerman},
                    Encoded{"SpanishLatin1", "ISO-8859-1", &kSpanish},
                    Encoded{"RussianWindows1251", "WINDOWS-1251", &kRussian},
                    Encoded{"UkrainianWindows1251", "WINDOWS-1251", &kUkrainian},
                    Encoded{"BulgarianWindows1251", "WINDOWS-1251", &kBulgarian},
                    Encoded{"PolishWindows1250", "WINDOWS-1250", &kPolish},
                    Encoded{"TurkishWindows1254", "WINDOWS-1254", &kTurkish},
                    Encoded{"GreekWindows1253", "WINDOWS-1253", &kGreek},
                    Encoded{"HebrewWindows1255", "WINDOWS-1255", &kHebrew},
                    Encoded{"KoreanEucKr", "EUC-KR", &kKorean},
                    Encoded{"TaiwaneseBig5", "BIG5", &kTaiwanese},
                    Encoded{"RussianKoi8", "KOI8-R", &kRussian},
                    Encoded{"JapaneseShiftJis", "SHIFT-JIS", &kJapanese},
                    Encoded{"KatakanaShiftJis", "SHIFT-JIS", &kKatakana},
                    Encoded{"ChineseGb18030", "GB18030", &kChinese}),
    [](const auto& parameter) { return std::string(parameter.param.name); });

TEST(TextEncodingTest, TheMarkDecidesAndIsNotText) {
  EXPECT_EQ(decoded("\xEF\xBB\xBF"
                    "d\xC3\xA9j\xC3\xA0"),
            "d\u00E9j\u00E0");
  using namespace std::string_view_literals;
  EXPECT_EQ(decoded("\xFF\xFE"
                    "d\0\xE9\0"sv),
            "d\u00E9");
  EXPECT_EQ(decoded("\xFE\xFF\0d\0\xE9"sv), "d\u00E9");
  EXPECT_EQ(decoded("\xFF\xFE\0\0d\0\0\0\xE9\0\0\0"sv), "d\u00E9");
  EXPECT_EQ(decoded("\0\0\xFE\xFF\0\0\0d\0\0\0\xE9"sv), "d\u00E9");
}

TEST(TextEncodingTest, AMarkAloneIsTheEmptyText) {
  EXPECT_EQ(decoded("\xEF\xBB\xBF"), "");
  EXPECT_EQ(decoded("\xFF\xFE"), "");
  EXPECT_EQ(decoded(""), "");
}

TEST(TextEncodingTest, AsciiAndItsLineBreaksStay) {
  EXPECT_EQ(decoded("1\r\n00:00:01,000\tHello\r\n"), "1\r\n00:00:01,000\tHello\r\n");
}

TEST(TextEncodingTest, AFewDamagedBytesOfUtf8AreReplaced) {
  const std::string text = kJapanese + kRussian;
  EXPECT_EQ(decoded(text + "\xE3\x81"), text + "\uFFFD");
  EXPECT_EQ(decoded(text + "\xFF!\n"), text + "\uFFFD!\n");
}

TEST(TextEncodingTest, TheCharactersThatWindowsAddsToLatin1AreText) {
  EXPECT_EQ(decoded("\x93Na\xEFve\x94 \x96 20 \x80 caf\xE9"),
            "\u201CNa\u00EFve\u201D \u2013 20 \u20AC caf\u00E9");
}

TEST(TextEncodingTest, OneAccentIsEnoughForLatin1) { EXPECT_EQ(decoded("caf\xE9"), "caf\u00E9"); }

TEST(TextEncodingTest, OneWordIsEnoughForCyrillic) {
  EXPECT_EQ(decoded("\xC4\xE0!"), "\u0414\u0430!");
}

TEST(TextEncodingTest, TheEndMarkOfDosIsNotText) {
  EXPECT_EQ(decoded("caf\xE9\x1A"), "caf\u00E9");
  EXPECT_EQ(decoded("plain\x1A"), "plain");
}

TEST(TextEncodingTest, ZeroBytesAreNoText) {
  using namespace std::string_view_literals;
  EXPECT_FALSE(decoded("text\0more"sv));
  EXPECT_FALSE(decoded("\0\0\0\0"sv));
  EXPECT_FALSE(
      decoded("\xFF\xFE"
              "a\0\0\0b\0"sv));
}

TEST(TextEncodingTest, ControlCharactersAreNoText) {
  EXPECT_FALSE(decoded("\x01\x02\x03\x04"));
  EXPECT_FALSE(decoded("caf\xE9 \x02\x05\x07\x10"));
}

TEST(TextEncodingTest, OneStrayControlCharacterInALongTextIsAllowed) {
  const std::string text = std::string(200, 'a') + "\x02";
  EXPECT_EQ(decoded(text), text);
}

TEST(TextEncodingTest, PicturesAndRandomBytesAreNoText) {
  using namespace std::string_view_literals;
  EXPECT_FALSE(decoded("\x89PNG\r\n\x1A\n\0\0\0\rIHDR\0\0\0\x01"sv));
  EXPECT_FALSE(decoded("\xFF\xD8\xFF\xE0\0\x10JFIF\0"sv));
  std::mt19937 random(3);
  for (int round = 0; round < 50; ++round) {
    std::string bytes(2000, '\0');
    for (char& byte : bytes) byte = static_cast<char>(1 + random() % 255);
    EXPECT_FALSE(decoded(bytes)) << round;
  }
}

TEST(TextEncodingTest, AnyBytesAreHarmless) {
  std::mt19937 random(5);
  for (int round = 0; round < 2000; ++round) {
    std::string bytes(random() % 40, '\0');
    for (char& byte : bytes) byte = static_cast<char>(random());
    decoded(bytes);
    decoded("\xFF\xFE" + bytes);
    decoded("\xEF\xBB\xBF" + bytes);
  }
}

}  // namespace
}  // namespace kestrel
