#include <gmock/gmock.h>
#include <kestrel/CodingBase.h>
#include <kestrel/KeyedArchiver.h>
#include <kestrel/KeyedUnarchiver.h>
#include <kestrel/Log.h>

#include <filesystem>
#include <fstream>

#include "tests/support/Process.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class Settings : public CodingBase {
 public:
  std::string title = "untitled";
  CodedValue tracks;
  std::string note = "not stored";

  explicit Settings(std::vector<std::string> keys = {"title", "tracks"}) : keys_(std::move(keys)) {}

  std::string codingName() const override { return "Settings"; }
  std::vector<std::string> allCoderKeys() const override { return keys_; }
  CodedValue valueForKey(const std::string& key) const override {
    if (key == "title") return title;
    if (key == "tracks") return tracks;
    return CodingBase::valueForKey(key);
  }
  void setValueForKey(const CodedValue& value, const std::string& key) override {
    if (key == "title") {
      title = value.text().value_or("");
    } else if (key == "tracks") {
      if (!value.isNull()) value.as<std::shared_ptr<CodedValue::Array>>();
      tracks = value;
    } else {
      CodingBase::setValueForKey(value, key);
    }
  }
  std::shared_ptr<CodingBase> alloc() const override { return std::make_shared<Settings>(); }

 private:
  std::vector<std::string> keys_;
};

class CodingBaseTest : public testing::Test {
 protected:
  CodingBaseTest() {
    setLogSink([this](std::string_view line) { lines_.emplace_back(line); });
  }
  ~CodingBaseTest() override { setLogSink({}); }

  std::vector<std::string> lines_;
  TempDir folder_;
  const std::string file_ = (folder_ / "settings.plist").string();
};

TEST_F(CodingBaseTest, TheBaseStoresAndCopiesNothing) {
  const CodingBase base;
  EXPECT_THAT(base.allCoderKeys(), IsEmpty());
  EXPECT_TRUE(base.writeToFile(file_, true));
  const auto archive = PropertyList::fromFile(file_);
  ASSERT_TRUE(archive);
  EXPECT_EQ(*archive->find("$top"), PropertyList(PropertyList::Dictionary{}));
  EXPECT_NE(base.copy(), nullptr);
}

TEST_F(CodingBaseTest, StoresExactlyTheListedKeysAsPythonSeesThem) {
  Settings settings;
  settings.title = "Holiday";
  settings.tracks = CodedValue::Array{1, 2};
  EXPECT_TRUE(settings.writeToFile(file_, true));
  const RunResult result = run({"python3", "-c", R"(
import plistlib, sys
p = plistlib.load(open(sys.argv[1], 'rb'))
o = p['$objects']
top = p['$top']
print(p['$archiver'], sorted(top), o[top['title'].data])
tracks = o[top['tracks'].data]
print([o[u.data] for u in tracks['NS.objects']], o[tracks['$class'].data]['$classname'])
)",
                                file_});
  EXPECT_EQ(result.out, "NSKeyedArchiver ['title', 'tracks'] Holiday\n[1, 2] NSArray\n");
}

TEST_F(CodingBaseTest, ComesBackFromAFile) {
  Settings settings;
  settings.title = "Holiday";
  settings.tracks = CodedValue::Array{"a"};
  settings.writeToFile(file_, true);
  Settings other;
  other.initWithContentsOfFile(file_);
  EXPECT_EQ(other.title, "Holiday");
  EXPECT_EQ(*other.tracks.as<std::shared_ptr<CodedValue::Array>>(), CodedValue::Array{"a"});
  EXPECT_THAT(lines_, IsEmpty());
}

TEST_F(CodingBaseTest, AnOlderFileLeavesNewerKeysUntouched) {
  Settings({"title"}).writeToFile(file_, true);
  Settings newer;
  newer.title = "mine";
  newer.tracks = CodedValue::Array{7};
  newer.initWithContentsOfFile(file_);
  EXPECT_EQ(newer.title, "untitled");
  EXPECT_EQ(*newer.tracks.as<std::shared_ptr<CodedValue::Array>>(), CodedValue::Array{7});
}

TEST_F(CodingBaseTest, AStoredNothingIsOtherThanAMissingKey) {
  Settings().writeToFile(file_, true);  // its tracks are nothing
  Settings other;
  other.tracks = CodedValue::Array{7};
  other.initWithContentsOfFile(file_);
  EXPECT_TRUE(other.tracks.isNull());
}

TEST_F(CodingBaseTest, IsAnObjectAmongOthersInAnArchive) {
  registerCodingClass("Settings", [](KeyedUnarchiver& unarchiver) {
    auto settings = std::make_shared<Settings>();
    settings->initWithCoder(unarchiver);
    return settings;
  });
  auto inner = std::make_shared<Settings>();
  inner->title = "inner";
  const auto bytes =
      KeyedArchiver::archivedDataWithRootObject(CodedValue::Array{CodedValue(inner)});
  const auto list = KeyedUnarchiver(bytes).rootObject().as<std::shared_ptr<CodedValue::Array>>();
  EXPECT_EQ(list->front().object<Settings>()->title, "inner");
}

TEST_F(CodingBaseTest, ACopyIsOfTheSameClassAndSharesLists) {
  Settings settings;
  settings.title = "Holiday";
  settings.note = "changed";
  settings.tracks = CodedValue::Array{1};
  const auto copy = std::dynamic_pointer_cast<Settings>(settings.copy());
  ASSERT_TRUE(copy);
  EXPECT_EQ(copy->title, "Holiday");
  EXPECT_EQ(copy->note, "not stored");
  settings.tracks.as<std::shared_ptr<CodedValue::Array>>()->push_back(2);
  EXPECT_EQ(copy->tracks.as<std::shared_ptr<CodedValue::Array>>()->size(), 2);
}

TEST_F(CodingBaseTest, MakesTheFoldersOnTheWay) {
  const auto deep = folder_ / "a" / "b" / "settings.plist";
  EXPECT_TRUE(Settings().writeToFile(deep.string(), false));
  EXPECT_TRUE(std::filesystem::exists(deep));
}

TEST_F(CodingBaseTest, WritesAsAWholeWhateverTheFlagSays) {
  std::ofstream(file_) << "old";
  std::filesystem::create_hard_link(file_, folder_ / "link");
  EXPECT_TRUE(Settings().writeToFile(file_, false));
  // The old file was not written into: who still has it still sees it.
  EXPECT_EQ(std::filesystem::file_size(folder_ / "link"), 3);
  EXPECT_GT(std::filesystem::file_size(file_), 3);
}

TEST_F(CodingBaseTest, AFailureToWriteIsSilentButForTheLog) {
  std::ofstream(folder_ / "file") << "x";
  EXPECT_TRUE(Settings().writeToFile((folder_ / "file" / "settings.plist").string(), true));
  EXPECT_THAT(lines_, ElementsAre(HasSubstr("cannot write")));
}

TEST_F(CodingBaseTest, AMissingOrUnreadableFileChangesNothing) {
  Settings settings;
  settings.title = "mine";
  settings.initWithContentsOfFile(file_);
  std::ofstream(file_) << "no archive";
  settings.initWithContentsOfFile(file_);
  EXPECT_EQ(settings.title, "mine");
  EXPECT_THAT(lines_, ElementsAre(HasSubstr("No such file"), HasSubstr("no archive")));
}

TEST_F(CodingBaseTest, LoadingStopsAtTheFirstKeyThatCannotBeRead) {
  KeyedArchiver archiver;
  archiver.encodeObject("new title", "title");
  archiver.encodeObject("no list", "tracks");
  const auto bytes = archiver.finishEncoding();
  std::ofstream(file_, std::ios::binary)
      .write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
  Settings settings({"title", "tracks", "unknown"});
  settings.initWithContentsOfFile(file_);
  EXPECT_EQ(settings.title, "new title");
  EXPECT_TRUE(settings.tracks.isNull());
  EXPECT_THAT(lines_, ElementsAre(HasSubstr("another kind")));
}

TEST_F(CodingBaseTest, AKeyThatNamesNoPropertyIsSwallowed) {
  EXPECT_TRUE(Settings({"unknown"}).writeToFile(file_, true));
  EXPECT_THAT(lines_, ElementsAre(HasSubstr("no property 'unknown'")));
  EXPECT_FALSE(std::filesystem::exists(file_));
}

TEST_F(CodingBaseTest, TryBlockRunsItsBlockAndContainsExceptions) {
  const CodingBase base;
  int runs = 0;
  base.tryBlock([&] { ++runs; });
  base.tryBlock([&] {
    ++runs;
    throw 5;
  });
  EXPECT_EQ(runs, 2);
}

/// Stores one of its properties in a way of its own.
class Shouting : public Settings {
 public:
  using Settings::Settings;

  void encoder(KeyedArchiver& archiver, const std::string& key) const override {
    if (key == "title")
      archiver.encodeObject(title + "!", key);
    else
      Settings::encoder(archiver, key);
  }
  void encodeWithCoder(KeyedArchiver& archiver) const override {
    Settings::encodeWithCoder(archiver);
    archiver.encodeInt64(7, "version");
  }
  std::shared_ptr<CodingBase> copy() const override {
    auto other = std::make_shared<Shouting>();
    for (const std::string& key : allCoderKeys()) copyTo(*other, key);
    other->note = note;
    return other;
  }
};

TEST_F(CodingBaseTest, AFileHoldsEachPropertyAsTheSubclassStoresIt) {
  Shouting settings;
  settings.title = "quiet";
  EXPECT_TRUE(settings.writeToFile(file_, true));
  KeyedUnarchiver unarchiver(*PropertyList::bytesOfFile(file_));
  EXPECT_EQ(unarchiver.decodeObjectForKey("title").text(), "quiet!");
  EXPECT_TRUE(unarchiver.containsValueForKey("tracks"));
  EXPECT_FALSE(unarchiver.containsValueForKey("version"));
}

TEST_F(CodingBaseTest, ACopyIsTheSubclasssToMake) {
  Shouting settings;
  settings.note = "copied all the same";
  const CodingBase& base = settings;
  const auto copy = std::dynamic_pointer_cast<Shouting>(base.copy());
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(copy->note, "copied all the same");
}

}  // namespace
}  // namespace kestrel::test
