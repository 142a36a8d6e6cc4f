#include <gmock/gmock.h>
#include <sys/stat.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/e2e/Kestrel.h"
#include "tests/support/FileBytes.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

RunResult kestrel(const Arguments& arguments, const RunOptions& options = {}) {
  return run(joined({kestrelBinary()}, arguments), options);
}

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

/// The lines that stand indented below the line `heading` of a text.
std::vector<std::string> linesBelow(const std::string& text, const std::string& heading) {
  std::vector<std::string> below;
  bool isBelow = false;
  for (const std::string& line : linesOf(text)) {
    if (isBelow && line.starts_with("  ")) below.push_back(line.substr(2));
    if (!line.starts_with("  ")) isBelow = line == heading;
  }
  return below;
}

std::vector<std::string> verbs() {
  std::vector<std::string> names;
  for (const std::string& line : linesBelow(kestrel({"--help"}).out, "Verbs:"))
    names.push_back(line.substr(0, line.find(' ')));
  return names;
}

Arguments helpOf(const std::string& verb) {
  return verb.empty() ? Arguments{"--help"} : Arguments{verb, "--help"};
}

TEST(Usage, VersionNamesProgramAndLibraries) {
  const RunResult result = kestrel({"--version"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  const auto lines = linesOf(result.out);
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_THAT(lines[0], testing::MatchesRegex("kestrel [0-9]+\\.[0-9]+\\.[0-9]+"));
  for (const char* library : {"libavformat ", "libavcodec ", "libswscale ", "ICU "})
    EXPECT_THAT(lines[1], HasSubstr(library));
}

// What filters pictures and plays sound brings dozens of libraries along.
TEST(Usage, LibrariesThatFewNeedAreLoadedWhenTheyAre) {
  const RunResult result = kestrel({"--version"}, {.environment = {"LD_TRACE_LOADED_OBJECTS=1"}});
  ASSERT_THAT(result.out, HasSubstr("libavcodec.so"));
  EXPECT_THAT(result.out, Not(HasSubstr("libavfilter.so")));
  EXPECT_THAT(result.out, Not(HasSubstr("libSDL2")));
}

// Where nobody can read what it has to say, the program does and answers the same.
TEST(Usage, StandardErrorMayBeFull) {
  const auto status = [](const std::string& command) {
    return run({"sh", "-c", "\"$0\" " + command + " 2>/dev/full", kestrelBinary(),
                fixture("av25.mp4").string()})
        .status;
  };
  EXPECT_EQ(status("info nothing.mp4"), 1);
  EXPECT_EQ(status("convert \"$1\""), 2);
  EXPECT_EQ(status("info \"$1\" nothing.mp4 >/dev/null"), 1);
}

// A reader that went away is no failure of the second file.
TEST(Usage, AReaderThatLeavesEndsAListOfFilesInSilence) {
  const RunResult result = run({"sh", "-c", "{ sleep 0.3; \"$0\" info \"$1\" \"$1\"; } | true",
                                kestrelBinary(), fixture("av25.mp4").string()});
  EXPECT_EQ(result.err, "");
}

TEST(Usage, HelpListsTheVerbs) {
  EXPECT_THAT(verbs(), testing::IsSupersetOf({"info", "convert", "thumb", "effects", "demo"}));
}

TEST(Usage, EveryHelpGoesToStandardOutput) {
  for (const std::string& verb : verbs()) {
    const RunResult result = kestrel(helpOf(verb));
    EXPECT_EQ(result.status, 0) << verb;
    EXPECT_EQ(result.err, "") << verb;
    EXPECT_THAT(result.out, HasSubstr("kestrel " + verb)) << verb;
  }
}

/// A folder for the examples in the verbs' help, which are run as they stand.
class ExampleFolder {
 public:
  ExampleFolder() {
    std::filesystem::create_directory(folder_ / "bin");
    // Many begin with the same demo, which takes seconds: they get a smaller one of its kind.
    const auto program = folder_ / "bin/kestrel";
    std::ofstream(program) << "#!/bin/sh\n[ \"$1 $#\" = 'demo 2' ] && [ -f ../demo.mp4 ] && "
                              "exec cp ../demo.mp4 \"$2\"\nexec '"
                           << kestrelBinary() << "' \"$@\"\n";
    std::filesystem::permissions(program, std::filesystem::perms::owner_all);
    std::filesystem::copy_file(fixture("bars.mp4"), folder_ / "demo.mp4");
  }

  /// Runs a verb's example in an empty folder.
  void expectExampleWorks(const std::string& verb) const {
    const auto work = folder_ / ("work" + verb);
    std::filesystem::create_directory(work);
    const auto example = linesBelow(kestrel(helpOf(verb)).out, "Example:");
    ASSERT_THAT(example, Not(IsEmpty()));
    std::string script = "PATH=" + (folder_ / "bin").string() + ":$PATH\n";
    for (const std::string& line : example) {
      EXPECT_THAT(line, StartsWith("kestrel "));
      script += line + "\n";
    }
    const RunResult result = run({"sh", "-ec", script}, {.workingDirectory = work});
    EXPECT_EQ(result.status, 0) << script << result.err;
    EXPECT_EQ(result.err, "") << script;
  }

 private:
  const TempDir folder_;
};

TEST(Usage, TheExampleOfEveryVerbWorks) {
  const ExampleFolder folder;
  // That of `play` needs a sound device, that of `dvd` a disc.
  for (const std::string verb : {"", "info", "convert", "job", "thumb", "compose", "join", "cut",
                                 "wave", "compare", "check", "scenes", "effects", "presets"}) {
    SCOPED_TRACE("kestrel " + verb);
    folder.expectExampleWorks(verb);
  }
}

const char* const kVerbs =
    "info, convert, job, thumb, compose, join, cut, wave, compare, check, scenes, dvd, play, "
    "effects, "
    "encoders, "
    "presets and "
    "demo";

TEST(Usage, HelpMayComeFirst) {
  EXPECT_EQ(kestrel({"help", "convert"}).out, kestrel({"convert", "--help"}).out);
  EXPECT_EQ(kestrel({"help"}).out, kestrel({"--help"}).out);
  EXPECT_EQ(kestrel({"-V"}).out, kestrel({"--version"}).out);
  EXPECT_EQ(kestrel({"version"}).out, kestrel({"--version"}).out);
}

TEST(Usage, AVerbIsNeeded) { EXPECT_TRUE(endsWithSentence(kestrel({}), 2, kVerbs)); }

TEST(Usage, AnUnknownVerbIsAnsweredWithTheKnownOnes) {
  const RunResult result = kestrel({"transmogrify", "a", "b"});
  EXPECT_TRUE(endsWithSentence(result, 2, "unknown verb 'transmogrify'"));
  EXPECT_THAT(result.err, HasSubstr(kVerbs));
}

TEST(Usage, WrongUsageIsToldInOneSentenceThatPointsToHelp) {
  struct Mistake {
    Arguments arguments;
    std::string message;
  };
  for (const auto& [arguments, message] : std::vector<Mistake>{
           {{"--frobnicate"}, "unknown option '--frobnicate' (see 'kestrel --help')"},
           {{"info"}, "input is required (see 'kestrel info --help')"},
           {{"demo", "a", "b"}, "unknown argument 'b' (see 'kestrel demo --help')"},
           {{"convrt", "a", "b"},
            "unknown verb 'convrt'; did you mean 'convert'? (see 'kestrel --help')"},
           {{"help", "inof"}, "unknown verb 'inof'; did you mean 'info'? (see 'kestrel --help')"},
           {{"version", "b"}, "unknown argument 'b' (see 'kestrel --help')"},
           {{"/dev/null"},
            "'/dev/null' is a file, and a verb comes first, as in 'kestrel info /dev/null' (see "
            "'kestrel "
            "--help')"},
           {{"help", "info", "b"}, "unknown argument 'b' (see 'kestrel --help')"},
           {{"convert", "a", "b", "--vcodec", "h264"},
            "unknown option '--vcodec'; did you mean '--video-codec'? (see 'kestrel convert "
            "--help')"},
           {{"info", "a", "--jsn"},
            "unknown option '--jsn'; did you mean '--json'? (see 'kestrel info --help')"},
           {{"convert", "a"}, "output is required (see 'kestrel convert --help')"},
           {{"convert", "a", "b", "--size"},
            "--size: the value is missing (see 'kestrel convert --help')"},
           {{"convert", "a", "b", "--crf", "best"},
            "--crf: 'best' is not a number (see 'kestrel convert --help')"},
           {{"convert", "a", "b", "--size", "5x5", "--size", "6x6"},
            "--size is given more than once (see 'kestrel convert --help')"},
           {{"demo"}, "output is required (see 'kestrel demo --help')"}}) {
    const RunResult result = kestrel(arguments);
    EXPECT_EQ(result.status, 2) << message;
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "kestrel: " + message + "\n");
  }
}

TEST(Usage, AValueThatIsNoneIsNamedWithItsOption) {
  const Arguments command{"convert", fixture("av25.mp4").string(), "/nowhere/out.mp4"};
  for (const Arguments& option : std::vector<Arguments>{{"--size", "wide"},
                                                        {"--fps", "29,97"},
                                                        {"--aspect", "16/9"},
                                                        {"--video-bitrate", "lots"},
                                                        {"--start", "noon"},
                                                        {"--end", "1:99"},
                                                        {"--duration", "-5"}}) {
    EXPECT_TRUE(endsWithSentence(kestrel(joined(command, option)), 2,
                                 option[0] + ": '" + option[1] + "' is not a"));
  }
}

TEST(Usage, AnOptionThatWouldDoNothingIsRefused) {
  const Arguments command{"convert", fixture("av25.mp4").string(), "/nowhere/out.mp4"};
  for (const Arguments& options :
       std::vector<Arguments>{{"--size", "100x-", "--video-codec", "copy"},
                              {"--fps", "25", "--video-codec", "none"},
                              {"--crf", "20", "--video-codec", "copy"},
                              {"--volume", "2", "--audio-codec", "copy"},
                              {"--channels", "mono", "--audio-codec", "none"}}) {
    EXPECT_TRUE(
        endsWithSentence(kestrel(joined(command, options)), 2,
                         options[0] + " does nothing beside " + options[2] + " " + options[3]));
  }
  EXPECT_TRUE(endsWithSentence(kestrel(joined(command, {"--crf", "20", "--video-bitrate", "1M"})),
                               2, "give one of them"));
}

TEST(Usage, AMessageIsOneLineWhateverTheFileIsCalled) {
  const RunResult result = kestrel({"info", "nosuch\nfile\x1b[31m"});
  EXPECT_EQ(result.err, "kestrel: cannot open 'nosuch file [31m': No such file or directory\n");
}

TEST(Usage, AFileMayBeCalledLikeAVerb) {
  const TempDir folder;
  std::filesystem::copy_file(fixture("av25.mp4"), folder / "info");
  EXPECT_EQ(kestrel({"info", "info"}, {.workingDirectory = folder.path()}).status, 0);
}

TEST(Usage, AFileMayBeCalledLikeAnOption) {
  const TempDir folder;
  std::filesystem::copy_file(fixture("av25.mp4"), folder / "--json");
  EXPECT_EQ(kestrel({"info", "--", "--json"}, {.workingDirectory = folder.path()}).status, 0);
}

TEST(Usage, MessagesDoNotEndUpInAFileWhenStandardErrorIsClosed) {
  const TempDir folder;
  const RunResult result = run({"sh", "-c", "\"$0\" convert \"$1\" out.mkv --progress json 2>&-",
                                kestrelBinary(), fixture("av25.mp4").string()},
                               {.workingDirectory = folder.path()});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(readBytes(folder / "out.mkv"), Not(HasSubstr("\"percent\"")));
}

/// The program while it waits without end for the first byte of a pipe.
class WaitingProgram : public testing::Test {
 protected:
  WaitingProgram() {
    mkfifo((folder_ / "pipe").c_str(), 0600);
    process_ =
        std::make_unique<Process>(Arguments{kestrelBinary(), "info", (folder_ / "pipe").string()});
    while (!isWatching()) std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }

  /// Whether the program holds signals back, to take them in its own way.
  bool isWatching() const {
    std::ifstream status("/proc/" + std::to_string(process_->pid()) + "/status");
    for (std::string line; std::getline(status, line);)
      if (line.starts_with("SigBlk:")) return line.find_first_not_of("0", 8) != std::string::npos;
    return false;
  }

  const TempDir folder_;
  std::unique_ptr<Process> process_;
};

TEST_F(WaitingProgram, EndsAfterAnInterrupt) {
  process_->signal(SIGINT);
  EXPECT_TRUE(endsWithSentence(process_->wait(), 130, "interrupted"));
}

TEST_F(WaitingProgram, EndsAfterATermination) {
  process_->signal(SIGTERM);
  EXPECT_TRUE(endsWithSentence(process_->wait(), 130, "interrupted"));
}

}  // namespace
}  // namespace kestrel::test
