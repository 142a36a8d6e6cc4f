#include <gmock/gmock.h>
#include <kestrel/Bundle.h>
#include <kestrel/KeyedArchiver.h>
#include <kestrel/KeyedUnarchiver.h>
#include <kestrel/Log.h>
#include <kestrel/MovieHelperTask.h>
#include <kestrel/Task.h>
#include <kestrel/VideoJoiner.h>
#include <kestrel/VideoJoinerItem.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <unistd.h>

#include "tests/support/Process.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::SizeIs;

class VideoJoinerTest : public testing::Test {
 protected:
  VideoJoinerTest() {
    setenv("TMPDIR", folder_.path().c_str(), 1);
    setLogSink([this](std::string_view line) { lines_.emplace_back(line); });
  }
  ~VideoJoinerTest() override {
    setLogSink({});
    unsetenv("TMPDIR");
  }

  /// A program beside this one, for as long as the object lives.
  struct Helper {
    explicit Helper(const std::string& script)
        : path(Bundle::mainBundle().siblingPath("QTMovieHelperTask")) {
      std::ofstream(path) << "#!/bin/sh\n" << script;
      fs::permissions(path, fs::perms::owner_all);
    }
    ~Helper() { fs::remove(path); }
    Helper(const Helper&) = delete;
    Helper& operator=(const Helper&) = delete;
    const fs::path path;
  };

  size_t filesLeft() const {
    size_t count = 0;
    for (const auto& entry : fs::recursive_directory_iterator(folder_.path()))
      count += entry.is_regular_file() ? 1 : 0;
    return count;
  }

  TempDir folder_;
  std::vector<std::string> lines_;
};

TEST_F(VideoJoinerTest, ComesBackFromAnArchive) {
  const auto joiner = std::make_shared<VideoJoiner>();
  joiner->setPath("out.mp4");
  joiner->join("a.mp4", 0, 1);
  joiner->join("b.mp4", 12.5, 0.5);
  const auto file = folder_ / "archive";
  ASSERT_TRUE(KeyedArchiver::archiveRootObject(joiner, file.string()));
  const auto back = VideoJoiner::joinerWithPath(file.string());
  ASSERT_TRUE(back);
  EXPECT_EQ(back->path(), "out.mp4");
  ASSERT_THAT(back->tracks(), SizeIs(2));
  EXPECT_EQ(back->tracks()[1]->path(), "b.mp4");
  EXPECT_EQ(back->tracks()[1]->position(), 12.5);
  EXPECT_EQ(back->tracks()[1]->rate(), 0.5);
}

TEST_F(VideoJoinerTest, PythonFindsTheKeysAndTypes) {
  const auto joiner = std::make_shared<VideoJoiner>();
  joiner->setPath("out.mp4");
  joiner->join("a.mp4", 3, 1);
  const auto file = folder_ / "archive";
  ASSERT_TRUE(KeyedArchiver::archiveRootObject(joiner, file.string()));
  const RunResult result = run({"python3", "-c", R"(
import plistlib, sys
p = plistlib.load(open(sys.argv[1], 'rb')); o = p['$objects']
get = lambda uid: o[uid.data]
root = get(p['$top']['root'])
items = get(root['tracks'])
item = get(items['NS.objects'][0])
print(get(root['$class'])['$classname'], sorted(root), get(root['path']))
print(get(items['$class'])['$classname'], len(items['NS.objects']))
print(get(item['$class'])['$classname'], sorted(item), get(item['path']), item['position'], item['rate'])
)",
                                file.string()});
  EXPECT_EQ(result.out,
            "VideoJoiner ['$class', 'path', 'tracks'] out.mp4\n"
            "NSArray 1\n"
            "VideoJoinerItem ['$class', 'path', 'position', 'rate'] a.mp4 3.0 1.0\n");
}

TEST_F(VideoJoinerTest, OneWithoutItemsStoresNothingAsItsTracks) {
  const auto bytes = KeyedArchiver::archivedDataWithRootObject(std::make_shared<VideoJoiner>());
  const auto archive = PropertyList::fromData(bytes);
  const auto root = archive->find("$top")->find("root")->as<PropertyList::Uid>()->value;
  const auto& values = (*archive->find("$objects")->as<PropertyList::Array>())[root];
  EXPECT_EQ(*values.find("tracks"), PropertyList(PropertyList::Uid{0}));
  EXPECT_THAT(KeyedUnarchiver(bytes).rootObject().object<VideoJoiner>()->tracks(), SizeIs(0));
}

TEST_F(VideoJoinerTest, AFileThatIsNoArchiveIsNoJoiner) {
  const auto file = folder_ / "text";
  std::ofstream(file) << "no archive";
  EXPECT_EQ(VideoJoiner::joinerWithPath(file.string()), nullptr);
  EXPECT_EQ(VideoJoiner::joinerWithPath((folder_ / "absent").string()), nullptr);
  ASSERT_TRUE(KeyedArchiver::archiveRootObject("a text", file.string()));
  EXPECT_EQ(VideoJoiner::joinerWithPath(file.string()), nullptr);
  EXPECT_THAT(lines_, SizeIs(3));
}

TEST_F(VideoJoinerTest, TemporaryFilesHaveDifferentNamesInOneFolder) {
  const VideoJoiner joiner;
  const fs::path first = joiner.tempFilePath();
  const fs::path second = joiner.tempFilePath();
  EXPECT_NE(first, second);
  EXPECT_EQ(first.parent_path(), second.parent_path());
  EXPECT_EQ(first.parent_path(), folder_.path() / "test_composition" / "Video--Joiner--Temp");
  EXPECT_TRUE(fs::is_directory(first.parent_path()));
  const std::string prefix = "Video--Joiner--Temp-" + std::to_string(getpid()) + "-";
  const std::string name = first.filename().string();
  ASSERT_THAT(name, testing::StartsWith(prefix));
  EXPECT_EQ(name.find_first_not_of("0123456789abcdef", prefix.size()), std::string::npos);
  EXPECT_GT(name.size(), prefix.size());
}

TEST_F(VideoJoinerTest, OnlyThisUserMayEnterTheTemporaryFolder) {
  const fs::path inner = fs::path(VideoJoiner().tempFilePath()).parent_path();
  EXPECT_EQ(fs::status(inner).permissions(), fs::perms::owner_all);
  EXPECT_EQ(fs::status(inner.parent_path()).permissions(), fs::perms::owner_all);
}

TEST_F(VideoJoinerTest, AFolderThatOthersMayEnterIsNotUsed) {
  const std::string name = "test_composition-" + std::to_string(geteuid());
  const auto taken = folder_ / "test_composition";
  fs::create_directory(taken);
  fs::permissions(taken, fs::perms::all);
  const fs::path path = VideoJoiner().tempFilePath();
  EXPECT_EQ(path.parent_path(), folder_ / name / "Video--Joiner--Temp");

  // Nor is a link to one of this user's own folders, which another user could move.
  fs::remove_all(folder_ / name);
  fs::create_directory(folder_ / "own");
  fs::permissions(folder_ / "own", fs::perms::owner_all);
  fs::create_directory_symlink("own", folder_ / name);
  EXPECT_EQ(VideoJoiner().tempFilePath(), "");
  VideoJoiner().exportMovie();
  EXPECT_EQ(filesLeft(), 0);
  EXPECT_THAT(lines_, SizeIs(1));
}

TEST_F(VideoJoinerTest, AFolderOfAnotherUserIsNotUsed) {
  if (geteuid() != 0) GTEST_SKIP() << "only the administrator may give folders away";
  const auto taken = folder_ / "test_composition";
  fs::create_directory(taken);
  fs::permissions(taken, fs::perms::owner_all);
  ASSERT_EQ(chown(taken.c_str(), 12345, 12345), 0);
  EXPECT_EQ(fs::path(VideoJoiner().tempFilePath()).parent_path().parent_path(),
            folder_ / "test_composition-0");
}

TEST_F(VideoJoinerTest, NoItemIsLeftOut) {
  VideoJoiner joiner;
  joiner.setTracks({nullptr, std::make_shared<VideoJoinerItem>()});
  EXPECT_THAT(joiner.tracks(), SizeIs(1));
}

// One test, because all of it is about the one file beside this program.
TEST_F(VideoJoinerTest, HasTheHelperBesideTheProgramDoTheWork) {
  VideoJoiner joiner;
  joiner.setPath((folder_ / "out.mp4").string());
  fs::remove(Bundle::mainBundle().siblingPath("QTMovieHelperTask"));
  joiner.exportMovie();  // there is none
  EXPECT_EQ(filesLeft(), 0);
  EXPECT_THAT(lines_, SizeIs(1));
  EXPECT_THROW(launchMovieHelperTask("joiner", {}), TaskError);

  const auto told = folder_ / "told";
  {
    const Helper helper("cp \"$2\" '" + told.string() + "'; echo \"$# $1\" > '" + told.string() +
                        ".words'; exit 1");
    joiner.exportMovie();  // without items, and with a helper that fails
    EXPECT_EQ(filesLeft(), 2);
  }
  std::ostringstream words;
  words << std::ifstream(told.string() + ".words").rdbuf();
  EXPECT_EQ(words.str(), "2 joiner\n");
  const auto seen = VideoJoiner::joinerWithPath(told.string());
  ASSERT_TRUE(seen);
  EXPECT_EQ(seen->path(), joiner.path());
}

}  // namespace
}  // namespace kestrel::test
