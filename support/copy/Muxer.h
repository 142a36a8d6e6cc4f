#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "support/FirstError.h"
#include "support/MuxingOwners.h"
#include "support/copy/FragmentWriter.h"

namespace kestrel {

class LibraryLog;

/// The container of an output file and the file itself: created, opened, given a header, filled,
/// completed and closed, in this order. Failures are noted in `errors`.
///
/// The container's record exists as long as the muxer.
class Muxer {
 public:
  explicit Muxer(FirstError& errors) : errors_(errors) {}

  /// Creates the container named by `format`, otherwise by the extension of `path`. `interrupt` is
  /// polled by every operation that waits for the file.
  void create(const std::string& path, const std::string& format, std::function<bool()> interrupt);

  /// Null until `create` has succeeded.
  AVFormatContext* context() const { return context_.get(); }

  bool hasFlag(int flag) const { return (context_->oformat->flags & flag) != 0; }

  /// Adds a stream; null if memory runs out or `start` or `close` has been called.
  AVStream* addStream();

  /// Times are microseconds.
  void addChapter(int64_t start, int64_t end, const std::map<std::string, std::string>& tags);

  /// True until `start` or `close` is called.
  bool isSettingUp() const { return phase_ == Phase::kSettingUp; }

  /// Has the file, of one stream, handed out in fragments in place of being written.
  void setFragments(std::unique_ptr<FragmentWriter> fragments) {
    fragments_ = std::move(fragments);
  }

  /// Has packets handed out as they come, in place of being written: there is no file, and streams
  /// keep the time bases that they have.
  void setTaker(std::function<void(const AVPacket& packet, const AVStream& stream)> take) {
    take_ = std::move(take);
  }

  /// Opens the file and writes the header. On failure returns false; a second attempt is not
  /// possible.
  bool start(const std::map<std::string, std::string>& options);

  /// What the container rejected, if it and not the file caused the failure.
  enum class Refusal { kNone, kHeader, kPacket };
  Refusal refusal() const { return refusal_; }

  /// True between writing the header and writing the trailer.
  bool isWriting() const { return phase_ == Phase::kWriting; }

  /// Takes over a packet of `stream`, stamped in its time base, and leaves it blank.
  void write(AVPacket& packet, const AVStream& stream);

  /// Writes queued packets and the trailer.
  void complete();

  /// Closes the file as it is.
  void close();

 private:
  enum class Phase { kSettingUp, kWriting, kEnded };

  bool openFile();
  bool openFragments();
  bool writeHeader(const std::map<std::string, std::string>& options);
  bool isRefusal(int result) const;
  Error explain(int result, const LibraryLog& log) const;
  Error headerError(Error refusal) const;
  void limitQueue(int64_t dts, const AVStream& stream);

  FirstError& errors_;
  std::function<bool()> interrupt_;  // polled by the context, which it outlives
  OutputContextPtr context_;
  std::function<void(const AVPacket&, const AVStream&)> take_;
  std::unique_ptr<FragmentWriter> fragments_;  // what the context writes to, if there is one
  Phase phase_ = Phase::kSettingUp;
  Refusal refusal_ = Refusal::kNone;
  std::vector<int64_t> newest_;  // per stream, the latest packet's decoding time, µs
};

}  // namespace kestrel
