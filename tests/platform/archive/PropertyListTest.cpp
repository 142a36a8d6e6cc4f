#include <fcntl.h>
#include <gmock/gmock.h>
#include <kestrel/PropertyList.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <fstream>

#include "tests/support/Process.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

using Array = PropertyList::Array;
using Data = PropertyList::Data;
using Dictionary = PropertyList::Dictionary;

/// What Python prints for `script`, which finds the file's path in `path`.
std::string python(const std::filesystem::path& path, const std::string& script) {
  const RunResult result =
      run({"python3", "-c", "import plistlib, sys\npath = sys.argv[1]\n" + script, path.string()});
  if (result.status != 0) throw std::runtime_error("python3: " + result.err);
  return result.out;
}

PropertyList everyKind() {
  return Dictionary{{"true", true},
                    {"false", false},
                    {"byte", int64_t{200}},
                    {"short", int64_t{60000}},
                    {"int", int64_t{4000000000}},
                    {"long", INT64_MAX},
                    {"negative", int64_t{-5}},
                    {"least", INT64_MIN},
                    {"real", -0.125},
                    {"text", "plain"},
                    {"umlaut", "Grüße"},
                    {"emoji", "a\U0001F600b"},
                    {"empty", ""},
                    {"data", Data{0, 1, 255}},
                    {"date", PropertyList::Date{86400.0}},
                    {"uid", PropertyList::Uid{70000}},
                    {"list", Array{1, "two", Array{}, Dictionary{}}}};
}

class PropertyListTest : public testing::Test {
 protected:
  TempDir folder_;
  const std::filesystem::path file_ = folder_ / "list.plist";
};

TEST_F(PropertyListTest, EveryKindComesBackAsItWas) {
  EXPECT_EQ(PropertyList::fromData(everyKind().toData()), everyKind());
}

TEST_F(PropertyListTest, ManyObjectsNeedLongerReferences) {
  for (const int count : {14, 15, 255, 256, 70000}) {
    Array list;
    for (int i = 0; i < count; ++i) list.emplace_back(i);
    EXPECT_EQ(PropertyList::fromData(PropertyList(list).toData()), PropertyList(list)) << count;
  }
}

TEST_F(PropertyListTest, LongTextsAndDataComeBack) {
  for (const size_t size : {14, 15, 255, 256, 100000}) {
    const PropertyList list = Array{std::string(size, 'x'), Data(size, 7)};
    EXPECT_EQ(PropertyList::fromData(list.toData()), list) << size;
  }
}

TEST_F(PropertyListTest, PythonReadsWhatIsWrittenHere) {
  ASSERT_TRUE(everyKind().writeToFile(file_.string()));
  EXPECT_EQ(python(file_, R"(
p = plistlib.load(open(path, 'rb'))
for k in sorted(p): print(k, type(p[k]).__name__, ascii(p[k]))
)"),
            "byte int 200\n"
            "data bytes b'\\x00\\x01\\xff'\n"
            "date datetime datetime.datetime(2001, 1, 2, 0, 0)\n"
            "emoji str 'a\\U0001f600b'\n"
            "empty str ''\n"
            "false bool False\n"
            "int int 4000000000\n"
            "least int -9223372036854775808\n"
            "list list [1, 'two', [], {}]\n"
            "long int 9223372036854775807\n"
            "negative int -5\n"
            "real float -0.125\n"
            "short int 60000\n"
            "text str 'plain'\n"
            "true bool True\n"
            "uid UID UID(70000)\n"
            "umlaut str 'Gr\\xfc\\xdfe'\n");
}

TEST_F(PropertyListTest, ReadsWhatPythonWrites) {
  python(file_, R"(
import datetime
plistlib.dump({'true': True, 'false': False, 'byte': 200, 'short': 60000, 'int': 4000000000,
  'long': 2**63 - 1, 'negative': -5, 'least': -2**63, 'real': -0.125, 'text': 'plain',
  'umlaut': 'Gr\u00fc\u00dfe', 'emoji': 'a\U0001f600b', 'empty': '', 'data': b'\0\1\xff',
  'date': datetime.datetime(2001, 1, 2), 'uid': plistlib.UID(70000),
  'list': [1, 'two', [], {}]}, open(path, 'wb'), fmt=plistlib.FMT_BINARY)
)");
  EXPECT_EQ(PropertyList::fromFile(file_.string()), everyKind());
}

TEST_F(PropertyListTest, ReadsManyValuesThatPythonWrites) {
  python(file_, R"(
plistlib.dump([[i, i / 7] for i in range(100000)], open(path, 'wb'), fmt=plistlib.FMT_BINARY)
)");
  const auto list = PropertyList::fromFile(file_.string());
  ASSERT_TRUE(list);
  const auto& rows = *list->as<Array>();
  ASSERT_EQ(rows.size(), 100000);
  EXPECT_EQ(rows[99999], PropertyList(Array{99999, 99999 / 7.0}));
}

TEST_F(PropertyListTest, BrokenTextIsWrittenAsReplacementCharacters) {
  const PropertyList list = Array{"a\xFFz", "\xC3", "\xED\xA0\x80", "\xC0\x80"};
  const auto back = PropertyList::fromData(list.toData());
  EXPECT_EQ(back, PropertyList(Array{"a\uFFFDz", "\uFFFD", "\uFFFD\uFFFD\uFFFD", "\uFFFD\uFFFD"}));
}

TEST_F(PropertyListTest, WritingReplacesTheWholeFileAndLeavesNoOther) {
  ASSERT_TRUE(PropertyList(std::string(100000, 'x')).writeToFile(file_.string()));
  ASSERT_TRUE(PropertyList("short").writeToFile(file_.string()));
  EXPECT_EQ(PropertyList::fromFile(file_.string()), PropertyList("short"));
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder_.path()), {}), 1);
}

// It would be gone if another file took its place.
TEST_F(PropertyListTest, ADeviceIsWrittenToAndStays) {
  const auto pipe = folder_ / "pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  const int reader = open(pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  ASSERT_GE(reader, 0);
  EXPECT_TRUE(PropertyList("short").writeToFile(pipe.string()));
  char start[9] = {};
  EXPECT_EQ(read(reader, start, 8), 8);
  EXPECT_STREQ(start, "bplist00");
  close(reader);
  EXPECT_TRUE(std::filesystem::is_fifo(pipe));
}

TEST_F(PropertyListTest, TellsWhyAFileCannotBeReadOrWritten) {
  Error error;
  EXPECT_FALSE(PropertyList::fromFile((folder_ / "absent").string(), &error));
  EXPECT_EQ(error.message, "No such file or directory");
  EXPECT_FALSE(PropertyList().writeToFile((folder_ / "absent" / "x").string(), &error));
  EXPECT_EQ(error.message, "No such file or directory");
  std::ofstream(file_) << "<?xml version=\"1.0\"?><plist/>";
  EXPECT_FALSE(PropertyList::fromFile(file_.string(), &error));
  EXPECT_THAT(error.message, testing::HasSubstr("no property list"));
}

TEST_F(PropertyListTest, AnswersWhatAValueIs) {
  const PropertyList list = everyKind();
  EXPECT_EQ(*list.find("text")->as<std::string>(), "plain");
  EXPECT_EQ(list.find("nothing"), nullptr);
  EXPECT_EQ(list.find("text")->find("x"), nullptr);
  EXPECT_EQ(list.find("byte")->number(), 200.0);
  EXPECT_EQ(list.find("real")->number(), -0.125);
  EXPECT_EQ(list.find("text")->number(), std::nullopt);
  EXPECT_EQ(list.find("text")->as<Data>(), nullptr);
}

}  // namespace
}  // namespace kestrel::test
