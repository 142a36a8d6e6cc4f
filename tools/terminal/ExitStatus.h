#pragma once

/// What the program answers to the shell.
enum ExitStatus : int {
  kDone = 0,
  kFailed = 1,
  kWrongUsage = 2,
  kDoneInPart = 3,     ///< a result is there, but the input ended early or was damaged
  kTooLow = 4,         ///< a comparison's score is below what was asked for
  kInterrupted = 130,  ///< as a shell reports a program that SIGINT ended
};
