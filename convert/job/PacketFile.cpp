#include "convert/job/PacketFile.h"

#include <kestrel/convert/Failure.h>
#include <unistd.h>

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <cstring>
#include <string_view>
#include <utility>

#include "support/FFmpegBytes.h"
#include "support/FFmpegCompat.h"
#include "support/StreamSideData.h"

namespace kestrel {

namespace {

using nlohmann::json;

constexpr std::string_view kMagic = "kestrel packets 1\n";
constexpr char kPacket = 'P';
constexpr char kEnd = 'E';
constexpr uint32_t kLargest = 1U << 30;  // of what has a length, bytes
constexpr size_t kSumDigits = 64;

std::string hexOf(const uint8_t* bytes, size_t size) {
  std::string text;
  for (size_t i = 0; i < size; ++i) text += fmt::format("{:02x}", bytes[i]);
  return text;
}

std::vector<uint8_t> bytesOf(const std::string& hex) {
  std::vector<uint8_t> bytes;
  for (size_t i = 0; i + 1 < hex.size(); i += 2)
    bytes.push_back(static_cast<uint8_t>(std::stoi(hex.substr(i, 2), nullptr, 16)));
  return bytes;
}

json jsonOf(AVRational number) { return {number.num, number.den}; }

AVRational rationalIn(const json& number) { return {number.at(0), number.at(1)}; }

/// The members of a codec's parameters that are plain numbers, each by its name.
template <typename Parameters, typename Visit>
void visitNumbers(Parameters& codec, const Visit& visit) {
  visit("codec_type", codec.codec_type);
  visit("codec_id", codec.codec_id);
  visit("codec_tag", codec.codec_tag);
  visit("format", codec.format);
  visit("bit_rate", codec.bit_rate);
  visit("bits_per_coded_sample", codec.bits_per_coded_sample);
  visit("bits_per_raw_sample", codec.bits_per_raw_sample);
  visit("profile", codec.profile);
  visit("level", codec.level);
  visit("width", codec.width);
  visit("height", codec.height);
  visit("field_order", codec.field_order);
  visit("color_range", codec.color_range);
  visit("color_primaries", codec.color_primaries);
  visit("color_trc", codec.color_trc);
  visit("color_space", codec.color_space);
  visit("chroma_location", codec.chroma_location);
  visit("video_delay", codec.video_delay);
  visit("sample_rate", codec.sample_rate);
  visit("block_align", codec.block_align);
  visit("frame_size", codec.frame_size);
  visit("initial_padding", codec.initial_padding);
  visit("trailing_padding", codec.trailing_padding);
  visit("seek_preroll", codec.seek_preroll);
}

json jsonOf(const AVStream& stream) {
  const AVCodecParameters& codec = *stream.codecpar;
  json document;
  visitNumbers(codec,
               [&](const char* name, auto value) { document[name] = static_cast<int64_t>(value); });
  document["extradata"] = hexOf(codec.extradata, static_cast<size_t>(codec.extradata_size));
  document["sample_aspect_ratio"] = jsonOf(codec.sample_aspect_ratio);
  document["channels"] = codec.ch_layout.nb_channels;
  document["channel_layout"] = layoutMask(codec.ch_layout);
  document["time_base"] = jsonOf(stream.time_base);
  document["rate"] = jsonOf(stream.avg_frame_rate);
  document["aspect"] = jsonOf(stream.sample_aspect_ratio);
  auto& beside = document["side_data"] = json::array();
  for (int type = 0; type < AV_PKT_DATA_NB; ++type)
    if (const auto bytes = streamSideData(stream, type); !bytes.empty())
      beside.push_back({type, hexOf(bytes.data(), bytes.size())});
  return document;
}

/// The padding that the library wants behind data.
PacketPtr packetOf(size_t size) {
  PacketPtr packet = makePacket();
  if (packet && av_new_packet(packet.get(), static_cast<int>(size)) < 0) packet.reset();
  return packet;
}

}  // namespace

PacketFileWriter::PacketFileWriter(const std::string& path)
    : path_(path), file_(std::fopen(path.c_str(), "wbxe")) {
  if (!file_) fail();
}

PacketFileWriter::~PacketFileWriter() = default;

void PacketFileWriter::fail() const {
  throw Failure::output(path_, fmt::format("cannot write '{}': {}", path_, std::strerror(errno)));
}

void PacketFileWriter::put(const void* data, size_t size) {
  sum_.add(data, size);
  if (std::fwrite(data, 1, size, file_.get()) != size) fail();
}

void PacketFileWriter::put32(uint32_t number) {
  std::array<uint8_t, 4> bytes{};
  for (uint8_t& byte : bytes) {
    byte = static_cast<uint8_t>(number);
    number >>= 8;
  }
  put(bytes.data(), bytes.size());
}

void PacketFileWriter::put64(int64_t number) {
  const auto bits = std::bit_cast<uint64_t>(number);
  put32(static_cast<uint32_t>(bits));
  put32(static_cast<uint32_t>(bits >> 32));
}

void PacketFileWriter::putText(const std::string& text) {
  put32(static_cast<uint32_t>(text.size()));
  put(text.data(), text.size());
}

void PacketFileWriter::begin(const json& about, const std::vector<const AVStream*>& streams) {
  json head{{"about", about}, {"streams", json::array()}};
  for (const AVStream* stream : streams) head["streams"].push_back(jsonOf(*stream));
  put(kMagic.data(), kMagic.size());
  putText(head.dump());
}

void PacketFileWriter::write(size_t stream, const AVPacket& packet) {
  put(&kPacket, 1);
  put32(static_cast<uint32_t>(stream));
  put64(packet.pts);
  put64(packet.dts);
  put64(packet.duration);
  put32(static_cast<uint32_t>(packet.flags));
  put32(static_cast<uint32_t>(packet.side_data_elems));
  for (int i = 0; i < packet.side_data_elems; ++i) {
    const AVPacketSideData& piece = packet.side_data[i];
    put32(static_cast<uint32_t>(piece.type));
    put32(static_cast<uint32_t>(piece.size));
    put(piece.data, piece.size);
  }
  put32(static_cast<uint32_t>(packet.size));
  put(packet.data, static_cast<size_t>(packet.size));
}

void PacketFileWriter::finish(const json& tail) {
  put(&kEnd, 1);
  putText(tail.dump());
  const std::string sum = sum_.text();
  const bool isWritten = std::fwrite(sum.data(), 1, sum.size(), file_.get()) == sum.size() &&
                         std::fflush(file_.get()) == 0 && fsync(fileno(file_.get())) == 0;
  if (!isWritten || std::fclose(file_.release()) != 0) fail();
}

PacketFileReader::PacketFileReader(const std::string& path)
    : path_(path), file_(std::fopen(path.c_str(), "rbe")), context_(avformat_alloc_context()) {
  if (!file_) fail(std::strerror(errno));
  if (!context_) fail("no memory");
  std::string magic(kMagic.size(), '\0');
  get(magic.data(), magic.size());
  if (magic != kMagic) fail("it holds no packets");
  const json head = json::parse(getText(), nullptr, false);
  if (head.is_discarded()) fail("its head is damaged");
  try {
    about_ = head.at("about");
    for (const json& stream : head.at("streams")) readStream(stream);
  } catch (const Failure&) {
    throw;
  } catch (const std::exception&) {
    fail("its head is damaged");
  }
}

PacketFileReader::~PacketFileReader() = default;

void PacketFileReader::fail(const std::string& why) const {
  throw Failure::input(path_, fmt::format("cannot read '{}': {}", path_, why));
}

void PacketFileReader::get(void* data, size_t size) {
  if (std::fread(data, 1, size, file_.get()) != size) fail("it ends too early");
  sum_.add(data, size);
}

uint32_t PacketFileReader::get32() {
  std::array<uint8_t, 4> bytes{};
  get(bytes.data(), bytes.size());
  return static_cast<uint32_t>(bytes[0]) | static_cast<uint32_t>(bytes[1]) << 8 |
         static_cast<uint32_t>(bytes[2]) << 16 | static_cast<uint32_t>(bytes[3]) << 24;
}

int64_t PacketFileReader::get64() {
  const uint64_t low = get32();
  return std::bit_cast<int64_t>(low | static_cast<uint64_t>(get32()) << 32);
}

std::string PacketFileReader::getText() {
  const uint32_t size = get32();
  if (size > kLargest) fail("it is damaged");
  std::string text(size, '\0');
  get(text.data(), text.size());
  return text;
}

void PacketFileReader::readStream(const json& document) {
  AVStream* const stream = avformat_new_stream(context_.get(), nullptr);
  if (!stream) fail("no memory");
  AVCodecParameters& codec = *stream->codecpar;
  visitNumbers(codec, [&]<typename Number>(const char* name, Number& value) {
    value = static_cast<Number>(document.at(name).get<int64_t>());
  });
  if (!setCodecData(codec, bytesOf(document.at("extradata")))) fail("no memory");
  codec.sample_aspect_ratio = rationalIn(document.at("sample_aspect_ratio"));
  const int channels = document.at("channels");
  if (const int64_t mask = document.at("channel_layout"))
    av_channel_layout_from_mask(&codec.ch_layout, static_cast<uint64_t>(mask));
  else
    codec.ch_layout.nb_channels = channels;
  stream->time_base = rationalIn(document.at("time_base"));
  stream->avg_frame_rate = rationalIn(document.at("rate"));
  stream->sample_aspect_ratio = rationalIn(document.at("aspect"));
  for (const json& piece : document.at("side_data")) {
    const auto bytes = bytesOf(piece.at(1));
    uint8_t* const data = av_stream_new_side_data(
        stream, static_cast<AVPacketSideDataType>(piece.at(0).get<int>()), bytes.size());
    if (data) std::ranges::copy(bytes, data);
  }
}

size_t PacketFileReader::streamCount() const { return context_->nb_streams; }

const AVStream& PacketFileReader::stream(size_t place) const { return *context_->streams[place]; }

PacketPtr PacketFileReader::next() {
  if (isOver_) return nullptr;
  char kind = 0;
  get(&kind, 1);
  if (kind == kEnd) {
    readTail();
    return nullptr;
  }
  const uint32_t place = kind == kPacket ? get32() : UINT32_MAX;
  if (place >= streamCount()) fail("it is damaged");
  const int64_t pts = get64();
  const int64_t dts = get64();
  const int64_t duration = get64();
  const uint32_t flags = get32();
  std::vector<std::pair<uint32_t, std::string>> beside(get32() % AV_PKT_DATA_NB);
  for (auto& [type, bytes] : beside) {
    type = get32();
    bytes = getText();
  }
  const uint32_t size = get32();
  if (size > kLargest) fail("it is damaged");
  PacketPtr packet = size > 0 ? packetOf(size) : makePacket();
  if (!packet) fail("no memory");
  if (size > 0) get(packet->data, size);
  for (const auto& [type, bytes] : beside) {
    uint8_t* const data = av_packet_new_side_data(
        packet.get(), static_cast<AVPacketSideDataType>(type), bytes.size());
    if (data) std::ranges::copy(bytes, data);
  }
  packet->stream_index = static_cast<int>(place);
  packet->pts = pts;
  packet->dts = dts;
  packet->duration = duration;
  packet->flags = static_cast<int>(flags);
  return packet;
}

void PacketFileReader::readTail() {
  const std::string tail = getText();
  std::string sum(kSumDigits, '\0');
  const bool isThere = std::fread(sum.data(), 1, sum.size(), file_.get()) == sum.size();
  if (!isThere || sum != sum_.text()) fail("it is not what was written");
  tail_ = json::parse(tail, nullptr, false);
  isOver_ = true;
}

json checkedTail(const std::string& path) {
  PacketFileReader reader(path);
  while (reader.next()) {
  }
  return reader.tail();
}

}  // namespace kestrel
