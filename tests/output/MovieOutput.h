#pragma once

// What the tests of the file output share: small outputs, pictures to write, and looks into the
// finished file by the media programs.

#include <kestrel/LMFFImage.h>
#include <kestrel/LMFFMovieFileOutput.h>

#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "support/FFmpegOwners.h"

namespace kestrel::test {

/// 160 × 120 at 25 pictures per second, 64 kbit/s mono sound at 44.1 kHz, the given codecs.
LMFFMovieFileOutputFormat smallFormat(int videoCodec = 0, int audioCodec = 0);

/// Writes pictures of the output's size, the luma of the n-th being 16 + 4n (modulo 200).
void writePictures(LMFFMovieFileOutput& output, int count);

/// Writes `count` samples (per channel) of a tone in the engine's default PCM format, which goes on
/// from sample `first`.
void writeTone(LMFFMovieFileOutput& output, int count, int first = 0);

/// Opens the two streams that are asked for; starts; fails the test if that does not work.
void start(LMFFMovieFileOutput& output, const std::filesystem::path& path, bool video, bool audio);

/// One stream of a file as ffprobe tells, `kind` being "v" or "a"; null without such a stream.
nlohmann::json streamOf(const std::filesystem::path& file, const std::string& kind);

/// How long a file lasts, in seconds.
double lengthOf(const std::filesystem::path& file);

/// The packets of a stream, in file order.
std::vector<nlohmann::json> packetsOf(const std::filesystem::path& file, const std::string& kind);

/// A number that ffprobe writes as a text.
double number(const nlohmann::json& value);

/// The whole number of a field of each packet; `AV_NOPTS_VALUE` where it is missing.
std::vector<int64_t> fieldOf(const std::vector<nlohmann::json>& packets, const std::string& field);

/// The checksum of each decoded picture, in the order of display, whatever its time.
std::vector<std::string> pictureSums(const std::filesystem::path& file);

/// The checksum of each packet's bytes as they lie in the file, optionally through a bitstream
/// filter. `kind`: "v", or "a:1" for the second stream of sound.
std::vector<std::string> packetSums(const std::filesystem::path& file, const std::string& kind,
                                    const std::string& filter = "");

/// The mean luma of each decoded picture, in 8 bits of limited range.
std::vector<double> meanLumas(const std::filesystem::path& file);

/// The decoded sound of a file, mixed to one channel, as 32-bit floats at the file's own rate.
std::vector<float> decodedSound(const std::filesystem::path& file);

/// Reads a file's packets as items, as a host does for a copy.
class PacketReader {
 public:
  explicit PacketReader(const std::filesystem::path& file);

  std::vector<AVStream*> streams() const {
    return {input_->streams, input_->streams + input_->nb_streams};
  }
  AVStream* video() const { return streamOfType(AVMEDIA_TYPE_VIDEO); }
  AVStream* audio() const { return streamOfType(AVMEDIA_TYPE_AUDIO); }

  /// The next packet, null at the end.
  std::shared_ptr<LMFFImage> next();

 private:
  AVStream* streamOfType(AVMediaType type) const;

  struct InputDeleter {
    void operator()(AVFormatContext* input) const { avformat_close_input(&input); }
  };
  std::unique_ptr<AVFormatContext, InputDeleter> input_;
};

/// Copies the first video and audio stream of a file into another, packet by packet; answers what
/// the output says at the end.
Error copyFile(const std::filesystem::path& from, const std::filesystem::path& to);

/// A packet item with `size` bytes and these time stamps.
std::shared_ptr<LMFFImage> packetItem(Rational timeBase, int64_t pts, int64_t dts,
                                      int64_t duration = 0, int size = 16);

}  // namespace kestrel::test
