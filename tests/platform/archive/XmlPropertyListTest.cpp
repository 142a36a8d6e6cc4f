#include <gmock/gmock.h>
#include <kestrel/KeyedUnarchiver.h>
#include <kestrel/PropertyList.h>

#include <fmt/format.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <string>

#include "tests/support/Process.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

using Array = PropertyList::Array;
using Dictionary = PropertyList::Dictionary;

std::optional<PropertyList> parsed(const std::string& text) {
  return PropertyList::fromData({reinterpret_cast<const uint8_t*>(text.data()), text.size()});
}

std::string document(const std::string& value) {
  return R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">
)" + value +
         "\n</plist>\n";
}

std::optional<PropertyList> value(const std::string& text) { return parsed(document(text)); }

TEST(XmlPropertyList, ReadsWhatPythonWrites) {
  const TempDir folder;
  const auto path = folder / "all.plist";
  const RunResult written = run({"python3", "-c", R"(
import datetime, plistlib, sys
with open(sys.argv[1], 'wb') as file:
    plistlib.dump({'text': 'a < b & "c"', 'umlaut': 'Grüße 🎬', 'empty': '', 'yes': True,
        'no': False, 'small': -5, 'long': 2**63 - 1, 'least': -2**63, 'real': -0.125,
        'data': bytes(range(256)), 'nothing': b'', 'list': [1, [2.5, []], {}],
        'date': datetime.datetime(2024, 2, 29, 12, 34, 56)}, file, fmt=plistlib.FMT_XML)
)",
                                 path.string()});
  ASSERT_EQ(written.status, 0) << written.err;
  PropertyList::Data bytes;
  for (int i = 0; i < 256; ++i) bytes.push_back(static_cast<uint8_t>(i));
  Error error;
  const auto list = PropertyList::fromFile(path.string(), &error);
  ASSERT_TRUE(list) << error.message;
  // 2024-02-29 12:34:56 lies 8459 days, 12 h 34 min 56 s after the first second of 2001.
  const PropertyList expected =
      Dictionary{{"text", "a < b & \"c\""},
                 {"umlaut", "Grüße 🎬"},
                 {"empty", ""},
                 {"yes", true},
                 {"no", false},
                 {"small", -5},
                 {"long", INT64_MAX},
                 {"least", INT64_MIN},
                 {"real", -0.125},
                 {"data", bytes},
                 {"nothing", PropertyList::Data{}},
                 {"list", Array{1, Array{2.5, Array{}}, Dictionary{}}},
                 {"date", PropertyList::Date{8459 * 86400.0 + 12 * 3600 + 34 * 60 + 56}}};
  EXPECT_EQ(*list, expected);
}

TEST(XmlPropertyList, ReadsAKeyedArchive) {
  const TempDir folder;
  const auto path = folder / "archive.plist";
  const RunResult written = run({"python3", "-c", R"(
import plistlib, sys
with open(sys.argv[1], 'wb') as file:
    plistlib.dump({'$archiver': 'NSKeyedArchiver', '$version': 100000,
        '$top': {'title': {'CF$UID': 1}}, '$objects': ['$null', 'Film']}, file,
        fmt=plistlib.FMT_XML)
)",
                                 path.string()});
  ASSERT_EQ(written.status, 0) << written.err;
  KeyedUnarchiver unarchiver(*PropertyList::bytesOfFile(path.string()));
  EXPECT_EQ(unarchiver.decodeObjectForKey("title").text(), "Film");
}

TEST(XmlPropertyList, ReadsTextsInEveryNotation) {
  EXPECT_EQ(value("<string>a&lt;b&gt;&amp;&quot;&apos;</string>"), PropertyList("a<b>&\"'"));
  EXPECT_EQ(value("<string>&#65;&#x1F3AC;&#xe4;</string>"), PropertyList("A🎬ä"));
  EXPECT_EQ(value("<string>a<!-- no -->b<![CDATA[<&amp;]]>c</string>"), PropertyList("ab<&amp;c"));
  EXPECT_EQ(value("<string> kept </string>"), PropertyList(" kept "));
  EXPECT_EQ(value("<string/>"), PropertyList(""));
  EXPECT_EQ(value("<string />"), PropertyList(""));
}

TEST(XmlPropertyList, ReadsNumbersInEveryNotation) {
  EXPECT_EQ(value("<integer> +12 </integer>"), PropertyList(12));
  EXPECT_EQ(value("<integer>0xFF</integer>"), PropertyList(255));
  EXPECT_EQ(value("<integer>-0x10</integer>"), PropertyList(-16));
  EXPECT_EQ(value("<real>+1.5e3</real>"), PropertyList(1500.0));
  EXPECT_EQ(value("<real>-infinity</real>"), PropertyList(-INFINITY));
  EXPECT_EQ(value("<date>2001-01-01T00:00:10Z</date>"), PropertyList(PropertyList::Date{10}));
  EXPECT_EQ(value("<date>1999-12-31T00:00:00Z</date>"),
            PropertyList(PropertyList::Date{-367.0 * 86400}));
}

TEST(XmlPropertyList, ReadsUtf16AndMarks) {
  const std::string text = document("<string>ä</string>");
  EXPECT_EQ(parsed("\xEF\xBB\xBF" + text), PropertyList("ä"));
  std::string wide = "\xFF\xFE";
  for (const char c : document("<string>A</string>")) wide += {c, '\0'};
  EXPECT_EQ(parsed(wide), PropertyList("A"));
}

TEST(XmlPropertyList, RefusesWhatIsNone) {
  for (const char* text : {"<integer>12x</integer>",
                           "<integer></integer>",
                           "<integer>9223372036854775808</integer>",
                           "<integer>0x-1</integer>",
                           "<real>much</real>",
                           "<date>2024-02-30T00:00:00Z</date>",
                           "<date>yesterday</date>",
                           "<data>!</data>",
                           "<string>&nbsp;</string>",
                           "<string>&#xD800;</string>",
                           "<string>&#0;</string>",
                           "<string>&amp</string>",
                           "<string>",
                           "<string><b/></string>",
                           "<dict><string>x</string></dict>",
                           "<dict><key>x</key></dict>",
                           "<array><string>x</string>",
                           "<array></dict>",
                           "<colour/>",
                           "text",
                           "",
                           "<true/><true/>",
                           "</array>"})
    EXPECT_EQ(value(text), std::nullopt) << text;
  for (const char* text : {"<", "<?xml", "<plist>", "<plist/>", "<html></html>", "<!-- ",
                           "<plist><true/></plist>more"})
    EXPECT_EQ(parsed(text), std::nullopt) << text;
  Error error;
  const std::string text = document("<colour/>");
  PropertyList::fromData({reinterpret_cast<const uint8_t*>(text.data()), text.size()}, &error);
  EXPECT_EQ(error.message, "it holds a value of an unknown kind");
}

TEST(XmlPropertyList, RefusesEntitiesThatMultiply) {
  EXPECT_EQ(parsed(R"(<!DOCTYPE plist [<!ENTITY a "aaaaaaaaaa"><!ENTITY b "&a;&a;&a;&a;">]>
<plist><string>&b;</string></plist>)"),
            std::nullopt);
}

TEST(XmlPropertyList, RefusesWhatLiesTooDeep) {
  const auto nested = [](int depth) {
    std::string text;
    for (int i = 0; i < depth; ++i) text += "<array>";
    for (int i = 0; i < depth; ++i) text += "</array>";
    return text;
  };
  EXPECT_NE(value(nested(256)), std::nullopt);
  EXPECT_EQ(value(nested(257)), std::nullopt);
  EXPECT_EQ(value(nested(100000)), std::nullopt);
}

TEST(XmlPropertyList, ADocumentThatEndsAnywhereIsRefused) {
  const std::string whole = document(
      "<dict><key>a&amp;</key><array><integer>1</integer><!-- c --><data>QQ==</data>"
      "</array></dict>");
  const size_t end = whole.find("</plist>") + 8;
  ASSERT_NE(parsed(whole), std::nullopt);
  for (size_t size = 0; size < end; ++size)
    EXPECT_EQ(parsed(whole.substr(0, size)), std::nullopt) << size;
}

}  // namespace
}  // namespace kestrel::test
