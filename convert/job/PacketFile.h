#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "convert/job/Sha256.h"
#include "support/FFmpegOwners.h"

namespace kestrel {

/// Encoded packets on their way into a container that is written later: everything that their
/// encoders say of streams and packets, bit for bit, in the encoders' own ticks. A checksum at the
/// end holds for all of it.
///
/// Both classes throw a `Failure` that names the file.

/// Its bytes, in order:
///
///     "kestrel packets 1\n"
///     the length of the head (u32) and the head, JSON: "about", and "streams" with their
///     parameters for each packet "P": its stream (u32), pts, dts, duration (i64), flags (u32); the
///     number of
///       pieces beside its data (u32) and of each its kind, length (u32) and bytes; length (u32)
///       and bytes of the data
///     "E", the length of the tail (u32) and the tail, JSON
///     SHA-256 of all that, in 64 hexadecimal digits
///
/// Numbers are little-endian.
class PacketFileWriter {
 public:
  explicit PacketFileWriter(const std::string& path);
  ~PacketFileWriter();
  PacketFileWriter(const PacketFileWriter&) = delete;
  PacketFileWriter& operator=(const PacketFileWriter&) = delete;

  /// `streams` as their encoders have described them; `about`: whatever tells the file from others.
  void begin(const nlohmann::json& about, const std::vector<const AVStream*>& streams);

  /// `stream`: its place among those.
  void write(size_t stream, const AVPacket& packet);

  /// Ends the file, and waits until the disk has it.
  void finish(const nlohmann::json& tail);

 private:
  struct Closer {
    void operator()(std::FILE* file) const { std::fclose(file); }
  };

  void put(const void* data, size_t size);
  void put32(uint32_t number);
  void put64(int64_t number);
  void putText(const std::string& text);
  [[noreturn]] void fail() const;

  const std::string path_;
  std::unique_ptr<std::FILE, Closer> file_;
  Sha256 sum_;
};

class PacketFileReader {
 public:
  /// Reads the head. Nothing is checked against the checksum yet.
  explicit PacketFileReader(const std::string& path);
  ~PacketFileReader();
  PacketFileReader(const PacketFileReader&) = delete;
  PacketFileReader& operator=(const PacketFileReader&) = delete;

  const nlohmann::json& about() const { return about_; }

  /// Of the file's streams; theirs are the parameters, ticks and rate.
  size_t streamCount() const;
  const AVStream& stream(size_t place) const;

  /// The next packet, with its stream's place as its index; null behind the last, once the whole
  /// has been found to be what was written.
  PacketPtr next();

  /// Behind the last packet.
  const nlohmann::json& tail() const { return tail_; }

 private:
  struct Closer {
    void operator()(std::FILE* file) const { std::fclose(file); }
  };
  struct ContextDeleter {
    void operator()(AVFormatContext* context) const { avformat_free_context(context); }
  };

  void get(void* data, size_t size);
  uint32_t get32();
  int64_t get64();
  std::string getText();
  void readStream(const nlohmann::json& json);
  void readTail();
  [[noreturn]] void fail(const std::string& why) const;

  const std::string path_;
  std::unique_ptr<std::FILE, Closer> file_;
  std::unique_ptr<AVFormatContext, ContextDeleter> context_;  // holds the streams
  Sha256 sum_;
  nlohmann::json about_;
  nlohmann::json tail_;
  bool isOver_ = false;
};

/// Reads a file to its end; answers the tail. Throws where the file is not whole.
nlohmann::json checkedTail(const std::string& path);

}  // namespace kestrel
