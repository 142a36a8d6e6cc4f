#pragma once

#include <optional>
#include <string>
#include <string_view>

/// How large a terminal is, in characters.
struct TerminalSize {
  int columns = 80;
  int rows = 24;

  bool operator==(const TerminalSize&) const = default;
};

/// Whether the environment says that the terminal knows no way to go back over what it shows.
bool isDumbTerminal();

/// The terminal that a player shows itself on and reads its keys from.
///
/// While it lives, keys come at once and without being shown, and the cursor is hidden; afterwards,
/// while a signal or a key has stopped the program, and when a signal ends it, the terminal is as
/// it was. One at a time. In the background there are no keys and nothing is shown, until the
/// program is in front again; without a terminal there are no keys, and where neither standard
/// output nor standard error is one, or it is dumb, nothing is shown.
class Terminal {
 public:
  explicit Terminal(bool readsKeys);
  ~Terminal();
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  /// Whether there is something to show text on now.
  bool isShown() const { return output_ >= 0 && isEntered_; }
  /// Whether that is standard output.
  bool isStandardOutput() const;

  TerminalSize size() const;

  /// Replaces what is shown, one or more lines, by `text`; its lines end in "\n", but for the last.
  void show(const std::string& text);

  /// Leaves what is shown as it is, and goes to the line after it.
  void leave();

  /// What was typed since the last call, waiting up to so many milliseconds for it. Nothing once
  /// there is nobody any more to type.
  std::string read(int milliseconds);

  /// Stops the program as the shell does, with the terminal as it was, until it is continued.
  void suspend();

 private:
  void enter();

  int output_ = -1;
  bool wantsKeys_ = false;
  bool isEntered_ = false;  // the terminal is the program's own now
  int shownLines_ = 0;      // above the one that the cursor is in
  std::string shown_;
};
