#include "support/copy/FlacNumbers.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>

#include "platform/codec/Codec.h"
#include "support/FFmpegBytes.h"

extern "C" {
#include <libavutil/crc.h>
#include <libavutil/intreadwrite.h>
#include <libavutil/md5.h>
#include <libavutil/mem.h>
}

namespace kestrel {

namespace {

using Bytes = std::span<const uint8_t>;

// The stream info (RFC 9639, 8.2): the smallest and the largest block, the smallest and the largest
// frame, then rate, channels and depth, which end in the same byte that the number of samples
// begins in, and a checksum of the samples.
constexpr size_t kInfo = 34;
constexpr size_t kFrames = 4;
constexpr size_t kLength = 13;
constexpr size_t kChecksum = 18;
constexpr int64_t kLongestLength = (int64_t{1} << 36) - 1;

// A frame (9.1): sync code and strategy, sizes and channels, then its number.
constexpr size_t kNumber = 4;
constexpr size_t kFooter = 2;
constexpr uint8_t kSync = 0xFF;
constexpr uint8_t kNumbersFrames = 0xF8;
constexpr uint8_t kNumbersSamples = 0xF9;

/// The length of a number that is coded like a character of UTF-8 (9.1.5), by its first byte; 0
/// where that is none.
size_t lengthOfNumber(uint8_t first) {
  if (first < 0x80) return 1;
  size_t length = 0;
  for (uint8_t bit = 0x80; (first & bit) != 0; bit = static_cast<uint8_t>(bit >> 1)) ++length;
  return length < 2 || length > 7 ? 0 : length;
}

std::vector<uint8_t> codedNumber(uint64_t number) {
  if (number < 0x80) return {static_cast<uint8_t>(number)};
  std::vector<uint8_t> rest;  // six bits each, the last ones first
  size_t room = 6;            // bits that the first byte takes
  while (number >> room != 0) {
    rest.push_back(static_cast<uint8_t>(0x80U | (number & 0x3FU)));
    number >>= 6U;
    room = 6 - rest.size();
  }
  std::vector<uint8_t> coded{static_cast<uint8_t>(0xFF00U >> (rest.size() + 1) | number)};
  coded.insert(coded.end(), rest.rbegin(), rest.rend());
  return coded;
}

/// What a frame's header tells.
struct Header {
  size_t number = 0;  // length of the number, bytes
  size_t size = 0;    // of all before the checksum, bytes
  int64_t samples = 0;
};

/// How many samples a frame has (9.1.1), and how many bytes of the header tell that behind its
/// number.
std::optional<std::pair<int64_t, size_t>> blockSize(unsigned code, Bytes behind) {
  if (code == 0) return std::nullopt;
  if (code == 1) return {{192, 0}};
  if (code <= 5) return {{576 << (code - 2), 0}};
  if (code >= 8) return {{256 << (code - 8), 0}};
  const size_t bytes = code - 5;
  if (behind.size() < bytes) return std::nullopt;
  return {{(bytes == 1 ? behind[0] : AV_RB16(behind.data())) + 1, bytes}};
}

std::optional<Header> headerOf(Bytes frame) {
  const bool isFrame = frame.size() > kNumber + kFooter && frame[0] == kSync &&
                       (frame[1] == kNumbersFrames || frame[1] == kNumbersSamples);
  const size_t number = isFrame ? lengthOfNumber(frame[kNumber]) : 0;
  if (number == 0 || frame.size() < kNumber + number) return std::nullopt;
  const auto block = blockSize(frame[2] >> 4U, frame.subspan(kNumber + number));
  if (!block) return std::nullopt;
  const unsigned rate = frame[2] & 15U;  // 9.1.2
  const size_t rateBytes = rate == 12 ? 1 : rate == 13 || rate == 14 ? 2 : 0;
  const Header header{number, kNumber + number + block->second + rateBytes, block->first};
  if (frame.size() < header.size + 1 + kFooter) return std::nullopt;
  return header;
}

uint32_t checksum(AVCRCId id, Bytes bytes) {
  return av_crc(av_crc_get_table(id), 0, bytes.data(), bytes.size());
}

/// A frame under another number.
std::vector<uint8_t> numbered(Bytes frame, const Header& header, int64_t number) {
  std::vector<uint8_t> made{kSync, kNumbersSamples, frame[2], frame[3]};
  const auto coded = codedNumber(static_cast<uint64_t>(number));
  made.insert(made.end(), coded.begin(), coded.end());
  const auto add = [&made](Bytes bytes) { made.insert(made.end(), bytes.begin(), bytes.end()); };
  const size_t behind = kNumber + header.number;
  add(frame.subspan(behind, header.size - behind));
  made.push_back(static_cast<uint8_t>(checksum(AV_CRC_8_ATM, made)));
  const size_t body = header.size + 1;
  add(frame.subspan(body, frame.size() - body - kFooter));
  const uint32_t footer = checksum(AV_CRC_16_ANSI, made);  // its bytes lie the other way round
  made.push_back(static_cast<uint8_t>(footer));
  made.push_back(static_cast<uint8_t>(footer >> 8U));
  return made;
}

/// The samples of a decoded frame as the checksum wants them: little-endian, in as few bytes as
/// they need. Decoders put those of more than 16 bits at the top of 32.
std::vector<uint8_t> samplesOf(const AVFrame& frame, int bits) {
  const bool isShort = frame.format == AV_SAMPLE_FMT_S16;
  const size_t bytes = static_cast<size_t>(bits + 7) / 8;
  const auto count =
      static_cast<size_t>(frame.nb_samples) * static_cast<size_t>(frame.ch_layout.nb_channels);
  std::vector<uint8_t> samples;
  samples.reserve(count * bytes);
  for (size_t i = 0; i < count; ++i) {
    int32_t sample = 0;
    if (isShort) {
      int16_t value = 0;
      std::memcpy(&value, frame.data[0] + i * sizeof(value), sizeof(value));
      sample = value >> (bits < 16 ? 16 - bits : 0);
    } else {
      std::memcpy(&sample, frame.data[0] + i * sizeof(sample), sizeof(sample));
      sample >>= 32 - bits;
    }
    for (size_t byte = 0; byte < bytes; ++byte)
      samples.push_back(static_cast<uint8_t>(static_cast<uint32_t>(sample) >> (8 * byte)));
  }
  return samples;
}

}  // namespace

std::span<uint8_t> flacInfoIn(std::span<uint8_t> data) {
  constexpr size_t kMarkAndHeader = 8;  // before it, if there is anything
  const bool isMarked = data.size() >= kInfo + kMarkAndHeader && data[0] == 'f';
  const size_t place = isMarked ? kMarkAndHeader : 0;
  return data.size() < place + kInfo ? std::span<uint8_t>() : data.subspan(place, kInfo);
}

FlacNumbers::FlacNumbers(const AVCodecParameters& parameters) : sound_(av_md5_alloc()) {
  if (sound_) av_md5_init(sound_);
  openDecoder(decoder_, parameters, {.sampleFormat = AV_SAMPLE_FMT_S16});
}

FlacNumbers::~FlacNumbers() { av_free(sound_); }

void FlacNumbers::take(AVPacket& packet) {
  const Bytes frame(packet.data, static_cast<size_t>(packet.size));
  const auto header = headerOf(frame);
  if (!header) return;
  hear(packet, header->samples);
  setBytes(packet, numbered(frame, *header, samples_));
  measure(packet, header->samples);
}

void FlacNumbers::measure(const AVPacket& packet, int64_t samples) {
  if (samples_ > 0) {
    shortest_ = std::min(shortest_, last_);
    longest_ = std::max(longest_, last_);
  }
  last_ = samples;
  samples_ += samples;
  smallest_ = std::min<int64_t>(smallest_, packet.size);
  largest_ = std::max<int64_t>(largest_, packet.size);
}

/// Adds a frame's samples to the checksum.
void FlacNumbers::hear(const AVPacket& packet, int64_t samples) {
  if (!sound_) return;
  int64_t heard = 0;
  int errors = 1;
  if (decoder_)
    errors = decodePacket(*decoder_, &packet, [&](const FramePtr& decoded) {
      const auto bytes = samplesOf(*decoded, decoder_->bits_per_raw_sample);
      heard += decoded->nb_samples;
      av_md5_update(sound_, bytes.data(), bytes.size());
    });
  if (errors > 0 || heard != samples) av_freep(&sound_);
}

void FlacNumbers::describe(std::span<uint8_t> info) {
  if (samples_ == 0) return;
  const auto put = [info](size_t place, size_t bytes, int64_t number) {
    for (size_t i = 0; i < bytes; ++i)
      info[place + i] = static_cast<uint8_t>(number >> (8 * (bytes - 1 - i)));
  };
  put(0, 2, shortest_ == INT64_MAX ? last_ : shortest_);
  put(2, 2, std::max(longest_, last_));
  put(kFrames, 3, smallest_);
  put(kFrames + 3, 3, largest_);
  const int64_t length = samples_ <= kLongestLength ? samples_ : 0;
  info[kLength] = static_cast<uint8_t>((info[kLength] & 0xF0) | (length >> 32));
  put(kLength + 1, 4, length);
  std::array<uint8_t, kInfo - kChecksum> sum{};
  if (sound_) av_md5_final(sound_, sum.data());
  std::ranges::copy(sum, info.begin() + kChecksum);
}

}  // namespace kestrel
