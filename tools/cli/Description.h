#pragma once

#include <string>
#include <vector>

/// What the program's verbs and options are, as its help, its manual pages and the shells'
/// completion tell it.

/// What a shell offers in a value's place.
struct Choices {
  std::vector<std::string> words = {};
  std::string question = {};  ///< what `complete` is asked for more of them; "": nothing
  bool files = false;
  bool folders = false;
};

/// An option, or an argument: that has no names, and a label.
struct OptionDescription {
  std::vector<std::string> names = {};  ///< with their dashes, short ones first
  std::string label = {};               ///< of an argument, such as "input"
  std::string value = {};               ///< what stands for its value in texts; "": it takes none
  std::string text = {};
  std::string group = {};
  bool isRequired = false;
  bool isRepeatable = false;
  Choices choices = {};

  bool isArgument() const { return names.empty(); }
};

struct VerbDescription {
  std::string name = {};
  std::string text = {};
  std::string footer = {};
  std::vector<OptionDescription> options = {};
};

struct ProgramDescription {
  std::string name = {};
  std::string text = {};
  std::string footer = {};
  std::vector<OptionDescription> options = {};
  std::vector<VerbDescription> verbs = {};
};

/// The headings of options, in their order.
std::vector<std::string> groupsOf(const std::vector<OptionDescription>& options);

/// The arguments as they are typed: "input output", "inputs...", "[name]".
std::string usageOf(const VerbDescription& verb);

/// A part of a footer: a text to be laid out, or lines that stay as they are.
struct Passage {
  std::string text = {};
  bool isVerbatim = false;
};

/// The parts of a footer. Lines that begin with a blank stay as they are, other neighbours are one
/// text.
std::vector<std::vector<Passage>> paragraphsOf(const std::string& footer);
