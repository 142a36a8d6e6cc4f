#include "convert/cut/AvcForm.h"

#include <algorithm>
#include <array>
#include <utility>

#include "support/FFmpegBytes.h"
#include "support/FFmpegError.h"
#include "support/copy/FineEncoder.h"

namespace kestrel {

namespace {

using Bytes = std::span<const uint8_t>;

constexpr uint32_t kMostSets = 256;
constexpr uint32_t kFirstRestart = 30000;  // no encoder counts so far
constexpr int kLastSlice = 5;              // types of units, ISO/IEC 14496-10, table 7-1
constexpr int kRestart = 5;

/// The encoder's name for a stream's profile; null for those that it does not have.
const char* nameOfProfile(int profile) {
  static constexpr std::array<std::pair<int, const char*>, 6> kNames{{{66, "baseline"},
                                                                      {77, "main"},
                                                                      {100, "high"},
                                                                      {110, "high10"},
                                                                      {122, "high422"},
                                                                      {244, "high444"}}};
  const auto* found = std::ranges::find(kNames, profile, &std::pair<int, const char*>::first);
  return found == kNames.end() ? nullptr : found->second;
}

void append(std::vector<uint8_t>& data, Bytes unit) {
  static constexpr uint8_t kStart[] = {0, 0, 0, 1};
  data.insert(data.end(), std::begin(kStart), std::end(kStart));
  data.insert(data.end(), unit.begin(), unit.end());
}

/// A configuration record (ISO/IEC 14496-15, 5.3.3.1) with one more picture parameter set.
std::vector<uint8_t> withSet(Bytes record, Bytes set) {
  size_t place = 6;
  for (int i = record[5] & 31; i > 0 && place + 2 <= record.size(); --i)
    place += 2 + (static_cast<size_t>(record[place]) << 8 | record[place + 1]);
  if (place >= record.size()) return {};
  std::vector<uint8_t> longer(record.begin(), record.end());
  size_t end = place + 1;
  for (int i = record[place]; i > 0 && end + 2 <= record.size(); --i)
    end += 2 + (static_cast<size_t>(record[end]) << 8 | record[end + 1]);
  if (end > record.size()) return {};
  std::vector<uint8_t> added{static_cast<uint8_t>(set.size() >> 8),
                             static_cast<uint8_t>(set.size())};
  added.insert(added.end(), set.begin(), set.end());
  longer.insert(longer.begin() + static_cast<std::ptrdiff_t>(end), added.begin(), added.end());
  ++longer[place];
  return longer;
}

}  // namespace

AvcForm::AvcForm(const AVStream& stream, const PictureIndex& index)
    : stream_(stream), index_(index), units_(*stream.codecpar), bare_(avcodec_parameters_alloc()) {
  if (bare_) bare_->codec_id = AV_CODEC_ID_H264;
}

std::string AvcForm::requireSequence() {
  std::optional<AvcSequence> found;
  move_.set = 0;
  sets_.clear();
  for (const Bytes unit : units_.parameterSets()) {
    const auto sequence = readAvcSequence(unit);
    if (sequence && found) return "the stream has several parameter sets";
    if (sequence) found = sequence;
    sets_.emplace_back(unit.begin(), unit.end());
  }
  if (!found) return "the stream's parameters are not told";
  while (index_.pictureSets.contains(move_.set)) ++move_.set;
  if (move_.set >= kMostSets) return "the stream leaves no parameter set free";
  move_.to = *found;
  if (!nameOfProfile(found->profile)) return "the encoder does not know the stream's profile";
  if (found->hasScaling) return "the stream has its own quantiser matrices";
  if (found->separatesPlanes || found->orderType == 1 || found->references == 0 ||
      found->cropLeft != 0 || found->cropTop != 0)
    return "the stream is written in a way that the encoder does not know";
  return {};
}

void AvcForm::configure() {
  const AvcSequence& to = move_.to;
  const bool hasStillFields = !to.framesOnly && !to.adaptsFields;
  codesFields_ = !to.framesOnly && to.adaptsFields;
  options_["preset"] = "veryfast";
  options_["profile"] = nameOfProfile(to.profile);
  // Slices that are not coded arithmetically can be moved bit by bit.
  options_["x264-params"] = std::string("cabac=0:weightp=0:scenecut=0:ref=1:keyint=300") +
                            (hasStillFields ? ":fake-interlaced=1" : "");
}

std::string AvcForm::readEncoder(const AVCodecContext& encoder) {
  AVCodecParameters* const bare = bare_.get();
  if (!bare ||
      !setCodecData(*bare, {encoder.extradata, encoder.extradata + encoder.extradata_size}))
    return "not enough memory";
  std::optional<AvcSequence> sequence;
  std::optional<AvcPictureSet> set;
  for (const Bytes unit : PictureUnits(*bare).parameterSets()) {
    if (const auto read = readAvcSequence(unit)) sequence = read;
    if (const auto read = readAvcPictureSet(unit)) {
      set = read;
      ownSet_ = renumbered(unit, move_.set, move_.to.id);
    }
  }
  if (!sequence || !set) return "the encoder does not tell its parameters";
  move_.from = *sequence;
  move_.fromSet = *set;
  return {};
}

std::string AvcForm::requireFit() const {
  const AvcSequence& from = move_.from;
  const AvcSequence& to = move_.to;
  const bool fits = from.width == to.width && from.height == to.height &&
                    from.chromaFormat == to.chromaFormat && from.bitDepth == to.bitDepth &&
                    from.references <= to.references && from.adaptsFields == to.adaptsFields &&
                    !from.hasScaling && !move_.fromSet.isArithmetic;
  return fits ? "" : "the encoder does not write pictures as the stream has them";
}

bool AvcForm::addSet(AVCodecParameters& output) const {
  const Bytes own(output.extradata, static_cast<size_t>(output.extradata_size));
  std::vector<uint8_t> data(own.begin(), own.end());
  const bool isRecord = own.size() > 6 && own[0] == 1;
  if (isRecord)
    data = withSet(own, ownSet_);
  else
    append(data, ownSet_);
  return !data.empty() && setCodecData(output, data);
}

std::string AvcForm::prepare(int steps, AVCodecParameters& output) {
  if (std::string why = requireSequence(); !why.empty()) return why;
  configure();
  const FramePtr picture = describedPicture(stream_);
  CodecContextPtr encoder;
  const int result = openFineEncoder(encoder,
                                     {.parameters = *stream_.codecpar,
                                      .rate = stream_.avg_frame_rate,
                                      .steps = steps,
                                      .apart = true,
                                      .codesFields = codesFields_,
                                      .options = options_},
                                     *picture);
  if (result < 0) return "the encoder refuses the stream's form: " + libraryError(result).message;
  if (std::string why = readEncoder(*encoder); !why.empty()) return why;
  if (std::string why = requireFit(); !why.empty()) return why;
  sets_.push_back(ownSet_);
  return addSet(output) ? "" : "the stream's codec data is damaged";
}

bool AvcForm::adopt(AVPacket& packet) {
  std::vector<uint8_t> data;
  bool isFirst = true;
  bool hasStartCodes = stream_.codecpar->extradata_size == 0 || stream_.codecpar->extradata[0] != 1;
  for (const Bytes unit : PictureUnits(*bare_).unitsOf(packet)) {
    const int type = unit[0] & 31;
    if (type == 0 || type > kLastSlice) continue;
    if (isFirst && type == kRestart) {
      number_ = 0;
      ++restarts_;
      // Where the packets hold all that a decoder needs, these do, too.
      if (hasStartCodes)
        for (const AvcUnit& set : sets_) append(data, set);
    }
    isFirst = false;
    append(data, moved(unit, move_, number_, kFirstRestart + restarts_ % 2));
  }
  ++number_;
  return setBytes(packet, data) && units_.adopt(packet);
}

}  // namespace kestrel
