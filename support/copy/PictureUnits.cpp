#include "support/copy/PictureUnits.h"

#include <algorithm>
#include <iterator>

#include "support/FFmpegBytes.h"

namespace kestrel {

namespace {

using Bytes = std::span<const uint8_t>;

// Types of units that H.264 (ISO/IEC 14496-10, table 7-1) and HEVC (ISO/IEC 23008-2, table 7-1)
// number.
constexpr int kH264LastSlice = 5;
constexpr int kH264Anew = 5;
constexpr int kHevcFirstAnew = 16;
constexpr int kHevcLastAnew = 20;
constexpr int kHevcLastLeaf = 14;  // up to here, even numbers are pictures that none refers to
constexpr int kHevcLastPicture = 31;
constexpr int kHevcLastSet = 34;

// Where the configuration records of MPEG-4 files (ISO/IEC 14496-15) say how long lengths are, and
// where their parameter sets begin.
constexpr size_t kAvcLengthSize = 4;
constexpr size_t kAvcSets = 5;
constexpr size_t kHevcLengthSize = 21;
constexpr size_t kHevcSets = 22;

/// The units of a stream in which each follows a start code, without the zeros behind it.
std::vector<Bytes> afterStartCodes(Bytes data) {
  std::vector<Bytes> units;
  size_t begin = 0;  // of the unit; 0 for none
  for (size_t i = 0; i + 3 <= data.size(); ++i) {
    if (data[i] != 0 || data[i + 1] != 0 || data[i + 2] != 1) continue;
    if (begin > 0) units.push_back(data.subspan(begin, i - begin));
    begin = i + 3;
    i += 2;
  }
  if (begin > 0) units.push_back(data.subspan(begin));
  for (Bytes& unit : units)
    while (!unit.empty() && unit.back() == 0) unit = unit.first(unit.size() - 1);
  std::erase_if(units, [](Bytes unit) { return unit.empty(); });
  return units;
}

/// The units of a stream in which each follows its length.
std::vector<Bytes> afterLengths(Bytes data, int size) {
  std::vector<Bytes> units;
  const auto head = static_cast<size_t>(size);
  while (data.size() > head) {
    size_t length = 0;
    for (const uint8_t byte : data.first(head)) length = length << 8 | byte;
    data = data.subspan(head);
    length = std::min(length, data.size());
    if (length > 0) units.push_back(data.first(length));
    data = data.subspan(length);
  }
  return units;
}

/// Takes `count` parameter sets, each behind two bytes of length, from the front of a record.
void takeSets(Bytes& record, size_t count, std::vector<Bytes>& sets) {
  for (size_t i = 0; i < count && record.size() >= 2; ++i) {
    const size_t length = static_cast<size_t>(record[0]) << 8 | record[1];
    record = record.subspan(2);
    sets.push_back(record.first(std::min(length, record.size())));
    record = record.subspan(sets.back().size());
  }
}

std::vector<Bytes> avcSets(Bytes record) {
  std::vector<Bytes> sets;
  if (record.size() <= kAvcSets) return sets;
  const size_t sequences = record[kAvcSets] & 31U;
  record = record.subspan(kAvcSets + 1);
  takeSets(record, sequences, sets);
  if (record.empty()) return sets;
  const size_t pictures = record[0];
  record = record.subspan(1);
  takeSets(record, pictures, sets);
  return sets;
}

std::vector<Bytes> hevcSets(Bytes record) {
  std::vector<Bytes> sets;
  if (record.size() <= kHevcSets) return sets;
  const size_t arrays = record[kHevcSets];
  record = record.subspan(kHevcSets + 1);
  for (size_t i = 0; i < arrays && record.size() >= 3; ++i) {
    const size_t count = static_cast<size_t>(record[1]) << 8 | record[2];
    record = record.subspan(3);
    takeSets(record, count, sets);
  }
  return sets;
}

Bytes bytesOf(const AVPacket& packet) { return {packet.data, static_cast<size_t>(packet.size)}; }

}  // namespace

PictureUnits::PictureUnits(const AVCodecParameters& parameters) : parameters_(parameters) {
  const Bytes record(parameters.extradata, static_cast<size_t>(parameters.extradata_size));
  const size_t place = parameters.codec_id == AV_CODEC_ID_HEVC ? kHevcLengthSize : kAvcLengthSize;
  if (hasUnits() && record.size() > place && record[0] == 1) lengthSize_ = (record[place] & 3) + 1;
}

std::vector<uint8_t> PictureUnits::meaning() const {
  std::vector<Unit> sets = parameterSets();
  std::erase_if(sets, [&](Unit unit) {  // such as who made the stream
    return unit.empty() ||
           (parameters_.codec_id == AV_CODEC_ID_HEVC && typeOf(unit) > kHevcLastSet);
  });
  std::vector<uint8_t> data = joined(sets);
  data.push_back(static_cast<uint8_t>(lengthSize_));
  return data;
}

bool PictureUnits::hasUnits() const {
  return parameters_.codec_id == AV_CODEC_ID_H264 || parameters_.codec_id == AV_CODEC_ID_HEVC;
}

int PictureUnits::typeOf(Unit unit) const {
  return parameters_.codec_id == AV_CODEC_ID_HEVC ? unit[0] >> 1 & 63 : unit[0] & 31;
}

std::vector<PictureUnits::Unit> PictureUnits::unitsOf(Unit data) const {
  return lengthSize_ > 0 ? afterLengths(data, lengthSize_) : afterStartCodes(data);
}

std::vector<PictureUnits::Unit> PictureUnits::unitsOf(const AVPacket& packet) const {
  return unitsOf(bytesOf(packet));
}

bool PictureUnits::beginsAnew(const AVPacket& key) const {
  if (!hasUnits()) return true;
  return std::ranges::any_of(unitsOf(key), [&](Unit unit) {
    const int type = typeOf(unit);
    return parameters_.codec_id == AV_CODEC_ID_HEVC
               ? type >= kHevcFirstAnew && type <= kHevcLastAnew
               : type == kH264Anew;
  });
}

bool PictureUnits::isDisposable(const AVPacket& packet) const {
  // An encoder's word for it, which may be wrong where it names B pictures that others refer to.
  if (!hasUnits()) return (packet.flags & AV_PKT_FLAG_DISPOSABLE) != 0;
  return std::ranges::all_of(unitsOf(packet), [&](Unit unit) {
    const int type = typeOf(unit);
    if (parameters_.codec_id == AV_CODEC_ID_HEVC)
      return type > kHevcLastPicture || (type <= kHevcLastLeaf && type % 2 == 0);
    return type > kH264LastSlice || (unit[0] & 0x60) == 0;
  });
}

std::vector<uint8_t> PictureUnits::joined(const std::vector<Unit>& units) const {
  std::vector<uint8_t> data;
  for (const Unit unit : units) {
    if (lengthSize_ == 0) data.insert(data.end(), {0, 0, 0, 1});
    for (int shift = 8 * (lengthSize_ - 1); shift >= 0 && lengthSize_ > 0; shift -= 8)
      data.push_back(static_cast<uint8_t>(unit.size() >> shift));
    data.insert(data.end(), unit.begin(), unit.end());
  }
  return data;
}

bool PictureUnits::adopt(AVPacket& packet) const {
  if (lengthSize_ == 0) return true;
  return setBytes(packet, joined(afterStartCodes(bytesOf(packet))));
}

std::vector<PictureUnits::Unit> PictureUnits::parameterSets() const {
  const Unit record(parameters_.extradata, static_cast<size_t>(parameters_.extradata_size));
  if (lengthSize_ == 0) return afterStartCodes(record);
  return parameters_.codec_id == AV_CODEC_ID_HEVC ? hevcSets(record) : avcSets(record);
}

bool PictureUnits::prependCodecData(AVPacket& packet) const {
  std::vector<uint8_t> data;
  if (hasUnits())
    data = joined(parameterSets());
  else if (parameters_.codec_id == AV_CODEC_ID_MPEG4)
    data.assign(parameters_.extradata, parameters_.extradata + parameters_.extradata_size);
  if (data.empty()) return true;
  const Unit own = bytesOf(packet);
  data.insert(data.end(), own.begin(), own.end());
  return setBytes(packet, data);
}

}  // namespace kestrel
