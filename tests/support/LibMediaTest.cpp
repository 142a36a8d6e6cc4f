#include <gtest/gtest.h>
#include <kestrel/LibMedia.h>
#include <unicode/uloc.h>

#include <string>

namespace kestrel {
namespace {

/// Restores the process's locale after each test.
class LibMediaTest : public testing::Test {
 protected:
  void TearDown() override { setLocale(original_.c_str()); }

  static void setLocale(const char* locale) {
    UErrorCode status = U_ZERO_ERROR;
    uloc_setDefault(locale, &status);
    ASSERT_TRUE(U_SUCCESS(status));
  }

  static std::string name(const std::string& code) {
    return LibMedia::displayStringForLanguage(code);
  }

 private:
  const std::string original_ = uloc_getDefault();
};

TEST_F(LibMediaTest, TwoLetterCodeGivesTheNameInTheUsersLanguage) {
  setLocale("en_US");
  EXPECT_EQ(name("fr"), "French");
  setLocale("fr_FR");
  EXPECT_EQ(name("fr"), "français");
  setLocale("de_DE");
  EXPECT_EQ(name("fr"), "Französisch");
}

TEST_F(LibMediaTest, ThreeLetterCodesAreKnown) {
  setLocale("en_US");
  EXPECT_EQ(name("eng"), "English");
  EXPECT_EQ(name("fra"), "French");
  EXPECT_EQ(name("deu"), "German");
  EXPECT_EQ(name("zho"), "Chinese");
  EXPECT_EQ(name("vai"), "Vai");
}

TEST_F(LibMediaTest, BibliographicThreeLetterCodesAreKnown) {
  setLocale("en_US");
  EXPECT_EQ(name("fre"), "French");
  EXPECT_EQ(name("ger"), "German");
  EXPECT_EQ(name("chi"), "Chinese");
  EXPECT_EQ(name("cze"), "Czech");
  EXPECT_EQ(name("dut"), "Dutch");
  EXPECT_EQ(name("gre"), "Greek");
  EXPECT_EQ(name("ice"), "Icelandic");
  setLocale("fr_FR");
  EXPECT_EQ(name("ger"), "allemand");
}

TEST_F(LibMediaTest, LetterCaseDoesNotCount) {
  setLocale("en_US");
  EXPECT_EQ(name("FR"), "French");
  EXPECT_EQ(name("Ger"), "German");
}

TEST_F(LibMediaTest, UnknownLongerCodeFallsBackToItsFirstTwoLetters) {
  setLocale("en_US");
  EXPECT_EQ(name("frx"), "French");
  EXPECT_EQ(name("italiano"), "Italian");
  setLocale("fr_FR");
  EXPECT_EQ(name("itx"), "italien");
}

TEST_F(LibMediaTest, UnknownTwoLetterCodeIsShownAsEnglish) {
  setLocale("en_US");
  EXPECT_EQ(name("xx"), "English");
  setLocale("fr_FR");
  EXPECT_EQ(name("xx"), "anglais");
}

TEST_F(LibMediaTest, EmptyCodeIsShownAsEnglish) {
  setLocale("en_US");
  EXPECT_EQ(name(""), "English");
  setLocale("fr_FR");
  EXPECT_EQ(name(""), "anglais");
}

TEST_F(LibMediaTest, UndeterminedLanguageIsShownAsEnglish) {
  setLocale("en_US");
  EXPECT_EQ(name("und"), "English");
}

TEST_F(LibMediaTest, CodesThatAreUnknownThroughoutAreShownAsEnglish) {
  setLocale("en_US");
  EXPECT_EQ(name("x"), "English");
  EXPECT_EQ(name("xxx"), "English");
  EXPECT_EQ(name("\xff\xfe\xfd"), "English");
  EXPECT_EQ(name(std::string(5000, 'q')), "English");
}

TEST_F(LibMediaTest, NameThatIsSpeltLikeItsCodeIsStillAName) {
  setLocale("es_ES");
  EXPECT_EQ(name("vai"), "vai");
}

TEST_F(LibMediaTest, NamesOutsideOfTheLatinAlphabetAreUtf8) {
  setLocale("ru_RU");
  EXPECT_EQ(name("fre"), "французский");
  setLocale("ja_JP");
  EXPECT_EQ(name("fre"), "フランス語");
}

TEST_F(LibMediaTest, LocaleWithoutNamesShowsTheCode) {
  setLocale("tlh");
  EXPECT_EQ(name("fr"), "fr");
  EXPECT_EQ(name("xx"), "xx");
}

}  // namespace
}  // namespace kestrel
