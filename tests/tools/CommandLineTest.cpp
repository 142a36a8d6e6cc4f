#include "tools/cli/CommandLine.h"

#include <gmock/gmock.h>
#include <kestrel/convert/Failure.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

/// A program with a verb of each kind of option.
class CommandLineTest : public testing::Test {
 protected:
  CommandLineTest() {
    Verb verb = line_.addVerb("paint", "Paint a wall");
    verb.option("wall", wall_, "which one").required().type("WALL");
    verb.flag("--twice", twice_, "two coats");
    verb.group("Paint");
    verb.option("--color", color_, "its colour").notEmpty();
    verb.option("--gloss", gloss_, "from 0 to 1");
    verb.option("--coats", coats_, "how many").type("LAYERS").within(1, 9);
    verb.option("--extra", extras_, "what else").repeatable();
    verb.runs([this] { return 40 + static_cast<int>(extras_.size()); });
    Verb sand = line_.addVerb("sand", "Sand a wall");
    sand.option("tools", tools_, "what with");
    sand.runs([] { return 7; });
  }

  ::Run read(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "decorator");
    std::vector<char*> pointers;
    for (std::string& argument : arguments) pointers.push_back(argument.data());
    return line_.read(static_cast<int>(pointers.size()), pointers.data());
  }

  /// The sentence of wrong usage; "" where it is right.
  std::string refusal(std::vector<std::string> arguments) {
    try {
      read(std::move(arguments));
    } catch (const kestrel::Failure& failure) {
      EXPECT_EQ(failure.kind(), kestrel::Failure::Kind::kSettings);
      return failure.what();
    }
    return {};
  }

  CommandLine line_{{.program = "decorator",
                     .description = "Decorates.",
                     .footer = "That is all.",
                     .version = [] { return std::string("decorator 3"); }}};
  std::string wall_, color_;
  bool twice_ = false;
  double gloss_ = 0.5;
  std::optional<int> coats_;
  std::vector<std::string> extras_, tools_;
};

TEST_F(CommandLineTest, ReadsWhatIsGivenAndAnswersWhatToRun) {
  const auto run = read({"paint", "north", "--gloss", "0.25", "--coats=3", "--twice"});
  EXPECT_EQ(wall_, "north");
  EXPECT_TRUE(twice_);
  EXPECT_EQ(gloss_, 0.25);
  EXPECT_EQ(coats_, 3);
  EXPECT_EQ(run(), 40);
  EXPECT_EQ(line_.verb()->name(), "paint");
}

TEST_F(CommandLineTest, BehindTwoDashesEverythingIsAnArgument) {
  for (const std::string wall : {"-north", "--twice", "sand", "--", "-n"}) {
    read({"paint", "--", wall});
    EXPECT_EQ(wall_, wall);
    EXPECT_FALSE(twice_);
  }
  read({"sand", "one", "--", "-two", "--three"});
  EXPECT_THAT(tools_, ElementsAre("one", "-two", "--three"));
  EXPECT_EQ(refusal({"paint", "--color", "--", "north"}), "--color: the value is missing");
  EXPECT_EQ(refusal({"paint", "north", "--", "-south"}), "unknown argument '-south'");
}

TEST_F(CommandLineTest, AMistypedOptionHasAHint) {
  EXPECT_EQ(refusal({"paint", "north", "--colour", "red"}),
            "unknown option '--colour'; did you mean '--color'?");
  EXPECT_EQ(refusal({"paint", "north", "--zzzzzzzz"}), "unknown option '--zzzzzzzz'");
}

TEST_F(CommandLineTest, WholeNumbersHaveTheirRangeInTheSentence) {
  for (const std::string number : {"0", "10", "2.5", "x", ""})
    EXPECT_EQ(refusal({"paint", "north", "--coats=" + number}),
              number.empty() ? "--coats: the value is missing"
                             : "--coats: '" + number + "' is not a whole number from 1 to 9");
}

TEST_F(CommandLineTest, AFlagTakesNoValue) {
  for (const char* flag : {"--twice=7", "--twice=true", "--twice=", "--twice=no"})
    EXPECT_EQ(refusal({"paint", "north", flag}), "--twice takes no value") << flag;
  EXPECT_EQ(refusal({"--version=3"}), "--version takes no value");
  EXPECT_EQ(refusal({"sand", "--help=no"}), "--help takes no value");
  EXPECT_EQ(refusal({"paint", "--", "--twice=7"}), "");
}

TEST_F(CommandLineTest, RunsTheVerbThatIsNamed) { EXPECT_EQ(read({"sand"})(), 7); }

TEST_F(CommandLineTest, TakesOneValueEachTimeOfARepeatedOption) {
  EXPECT_EQ(read({"paint", "--extra", "ladder", "north", "--extra", "brush"})(), 42);
  EXPECT_THAT(extras_, ElementsAre("ladder", "brush"));
  EXPECT_EQ(wall_, "north");
}

TEST_F(CommandLineTest, KnowsWhichOptionsWereGiven) {
  read({"paint", "north", "--color", "red"});
  const Verb verb = *line_.verb();
  EXPECT_TRUE(verb.isGiven("--color"));
  EXPECT_FALSE(verb.isGiven("--gloss"));
  EXPECT_TRUE(verb.hasOption("--gloss"));
  EXPECT_FALSE(verb.hasOption("--title"));
  std::vector<std::string> given;
  for (const Option& option : verb.options())
    if (option.isGiven()) given.push_back(option.group() + " " + option.name());
  EXPECT_THAT(given, ElementsAre("Options wall", "Paint --color"));
}

TEST_F(CommandLineTest, TellsWhatIsWrongInASentence) {
  EXPECT_EQ(refusal({}), "a verb is missing; the verbs are paint and sand");
  EXPECT_EQ(refusal({"scrape"}), "unknown verb 'scrape'; the verbs are paint and sand");
  EXPECT_EQ(refusal({"paint"}), "wall is required");
  EXPECT_EQ(refusal({"paint", "a", "b"}), "unknown argument 'b'");
  EXPECT_EQ(refusal({"paint", "a", "--rough"}), "unknown option '--rough'");
  EXPECT_EQ(refusal({"paint", "a", "--color"}), "--color: the value is missing");
  EXPECT_EQ(refusal({"paint", "a", "--color", ""}), "--color: the value is empty");
  EXPECT_EQ(refusal({"paint", "a", "--color", "x", "--color", "y"}),
            "--color is given more than once");
  EXPECT_THAT(refusal({"paint", "a", "--coats", "12"}),
              HasSubstr("not a whole number from 1 to 9"));
}

TEST_F(CommandLineTest, PrintsHelpAndVersionAndRunsNothing) {
  testing::internal::CaptureStdout();
  EXPECT_FALSE(read({"--version"}));
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "decorator 3");
  testing::internal::CaptureStdout();
  EXPECT_FALSE(read({"--help"}));
  EXPECT_THAT(testing::internal::GetCapturedStdout(),
              testing::AllOf(HasSubstr("Usage: decorator [OPTIONS] VERB"),
                             testing::ContainsRegex("\n  paint +Paint a wall\n"),
                             HasSubstr("That is all.")));
}

TEST_F(CommandLineTest, HelpTellsTheRangeOfAWholeNumberInWords) {
  testing::internal::CaptureStdout();
  EXPECT_FALSE(read({"paint", "--help"}));
  const std::string help = testing::internal::GetCapturedStdout();
  EXPECT_THAT(help, testing::ContainsRegex("--coats LAYERS +how many, from 1 to 9\n"));
  EXPECT_THAT(help, testing::Not(HasSubstr("INT")));
}

}  // namespace
