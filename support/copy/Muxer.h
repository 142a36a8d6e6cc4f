#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "support/FirstError.h"
#include "support/MuxingOwners.h"

namespace kestrel {

class LibraryLog;

/// The container of an output file and the file itself: made, opened, headed, filled, completed,
/// closed, in this order. What fails is noted in `errors`.
///
/// The container's record lives as long as the muxer.
class Muxer {
 public:
  explicit Muxer(FirstError& errors) : errors_(errors) {}

  /// Makes the container that `format` names, else the one for the extension of `path`. `interrupt`
  /// is asked by everything that waits for the file.
  void create(const std::string& path, const std::string& format, std::function<bool()> interrupt);

  /// Null until `create` has succeeded.
  AVFormatContext* context() const { return context_.get(); }

  bool hasFlag(int flag) const { return (context_->oformat->flags & flag) != 0; }

  /// Adds a stream, null when there is no memory or the header has been tried.
  AVStream* addStream();

  /// Times are microseconds.
  void addChapter(int64_t start, int64_t end, const std::map<std::string, std::string>& tags);

  /// Neither `start` nor `close` has been called.
  bool isSettingUp() const { return phase_ == Phase::kSettingUp; }

  /// Opens the file and writes the header; false when that failed, which is for good.
  bool start(const std::map<std::string, std::string>& options);

  /// What the container did not take, where it failed by that and not by the file.
  enum class Refusal { kNone, kHeader, kPacket };
  Refusal refusal() const { return refusal_; }

  /// The header has been written and the trailer has not.
  bool isWriting() const { return phase_ == Phase::kWriting; }

  /// Takes over a packet of `stream`, stamped in its time base: it is blank afterwards.
  void write(AVPacket& packet, const AVStream& stream);

  /// Writes what still waits and the trailer.
  void complete();

  /// Closes the file as it stands.
  void close();

 private:
  enum class Phase { kSettingUp, kWriting, kEnded };

  bool openFile();
  bool writeHeader(const std::map<std::string, std::string>& options);
  bool isRefusal(int result) const;
  Error explain(int result, const LibraryLog& log) const;
  Error headerError(Error refusal) const;
  void limitQueue(int64_t dts, const AVStream& stream);

  FirstError& errors_;
  std::function<bool()> interrupt_;  // outlives the context, which asks it
  OutputContextPtr context_;
  Phase phase_ = Phase::kSettingUp;
  Refusal refusal_ = Refusal::kNone;
  std::vector<int64_t> newest_;  // for each stream, the newest packet's decoding time, µs
};

}  // namespace kestrel
