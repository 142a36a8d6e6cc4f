#include <kestrel/Log.h>

#include <cstdio>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

namespace kestrel {

namespace {

/// Lives until the process ends, so that threads and static objects may log to the very last.
struct Log {
  std::mutex mutex;  ///< held while a line is on its way: one thread at a time
  std::shared_ptr<const LogSink> sink;
};

Log& theLog() {
  static Log& instance = *new Log;
  return instance;
}

/// True while the thread is within the sink, and so holds the lock.
thread_local bool isLogging = false;

/// One call, so that the lines of processes that share a terminal do not mix.
void writeToStandardError(std::string_view line) {
  const std::string text = std::string(line) + '\n';
  std::fwrite(text.data(), 1, text.size(), stderr);
}

}  // namespace

void setLogSink(LogSink sink) {
  auto other = sink ? std::make_shared<const LogSink>(std::move(sink)) : nullptr;
  std::unique_lock lock(theLog().mutex, std::defer_lock);
  if (!isLogging) lock.lock();
  theLog().sink.swap(other);
}

void log(std::string_view line) {
  // What a sink logs by itself would come back to it without end.
  if (isLogging) return writeToStandardError(line);

  std::shared_ptr<const LogSink> sink;  // outlives the lock: a sink may replace itself
  const std::lock_guard lock(theLog().mutex);
  sink = theLog().sink;
  if (!sink) return writeToStandardError(line);
  isLogging = true;
  try {
    (*sink)(line);
  } catch (...) {
    writeToStandardError(line);
  }
  isLogging = false;
}

}  // namespace kestrel
