#pragma once

/// Makes SIGINT, SIGTERM, SIGHUP and SIGQUIT stop the program in order. Call it first in `main`,
/// before any thread starts: threads inherit that these signals are not for them.
///
/// The first signal sets a flag that every loop asks for (`interrupted`). A program that is not
/// through with its work within a moment after it, or that gets a second signal, is ended from
/// here: unfinished outputs go, and the exit status is 130.
void watchForInterrupt();

/// True once a signal has asked the program to stop. Safe from any thread.
bool interrupted();

/// Says on standard error that the program was interrupted, once however often it is called.
void reportInterrupt();

/// What else has to happen when the program is ended from here, such as putting a terminal back; it
/// runs on a thread of its own while the others go on. The last one set counts.
void onForcedEnd(void (*action)());
