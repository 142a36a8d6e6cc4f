#pragma once

#include <kestrel/Error.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "support/MuxingOwners.h"

namespace kestrel {

/// The file that packets are copied into: streams like those of the inputs, and whatever a
/// container wants to have changed on the way. What fails first is kept in `error`: with the codes
/// of `LMMovieComposition` where the container cannot hold the packets as they are.
class CompositionFile {
 public:
  CompositionFile(const std::string& path, std::function<bool()> interrupt);

  /// Adds a stream for packets of `input`; -1 when that fails.
  int addStream(const AVStream& input);

  /// Opens the file and writes its header; false when one of these fails.
  bool start();

  /// Writes an input's tags, such as its title, as the file's own; before `start`.
  void setTags(const AVFormatContext& input);

  /// Adds a chapter like one of an input's, between two times (microseconds) of the file; before
  /// `finish`. Containers that write chapters last keep it.
  void addChapter(const AVChapter& input, int64_t start, int64_t end);

  const AVStream& stream(int index) const { return *context_->streams[index]; }
  const AVRational& timeBase(int stream) const { return this->stream(stream).time_base; }

  /// Whether pictures may lack the time at which they are shown: the container does not store it.
  bool storesOnlyOrder() const;

  /// Whether the container can hold packets that are decoded and not shown.
  bool hidesPackets() const;

  /// Takes over a packet that is stamped in the stream's time base, which is blank afterwards;
  /// false once something has failed. Packets without a decoding time, with which Matroska files
  /// begin where pictures are reordered, wait for the first one that has it and get theirs from it.
  bool write(AVPacket& packet, int stream);

  /// Writes what still waits and the trailer, and closes the file.
  void finish();

  const Error& error() const { return error_; }

 private:
  bool succeeded(int result);
  bool refuse(std::string why, int code);
  bool isRefusal(int result) const;
  /// A stream of the file.
  struct Lane {
    BitstreamFilterPtr filter;         // null for none
    std::vector<PacketPtr> waiting;    // for a decoding time
    int64_t lastDts = AV_NOPTS_VALUE;  // of what has been written, the stream's time base
    int64_t newest = AV_NOPTS_VALUE;   // the same in microseconds, or where the others are
    int64_t end = 0;                   // of what came, microseconds, for containers without times
    bool hasBegun = false;
    bool isSparse = false;  // subtitles, for which nothing waits
  };

  bool openFilter(const char* name, AVStream& stream, Lane& lane);
  int64_t stepOf(int stream) const;
  bool placesByOrder() const;
  int64_t durationOf(const AVPacket& packet, int stream) const;
  bool staysInTime(const AVPacket& packet, int stream);
  void refineMovieTime();
  bool writeWaiting(int64_t next, int stream);
  bool writeFiltered(AVPacket& packet, int stream);
  bool writeThrough(AVPacket& packet, int stream);
  void limitQueue(int64_t dts, int stream);

  Error error_;
  std::function<bool()> interrupt_;  // outlives the context, which asks it
  OutputContextPtr context_;
  std::vector<Lane> lanes_;
};

}  // namespace kestrel
