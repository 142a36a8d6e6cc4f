#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "convert/cut/PictureIndex.h"
#include "support/FFmpegOwners.h"

namespace kestrel {

/// How pictures that are encoded become part of a stream that is copied: what the encoder is told,
/// and what is done to its packets. An object serves one stream of one result.
class StretchForm {
 public:
  virtual ~StretchForm() = default;

  /// Whether copies may begin where pictures that are shown before are left out.
  virtual bool startsOpen() const { return false; }

  /// Decides how the encoder is told, and adds to the result's codec data what its packets need.
  /// `steps`: how much finer than usual. Answers why it can't be done, "" where it can.
  virtual std::string prepare(int steps, AVCodecParameters& output) = 0;

  /// The encoder's options, and whether it codes fields, once prepared.
  const std::map<std::string, std::string>& options() const { return options_; }
  std::optional<bool> codesFields() const { return codesFields_; }

  /// The codec's tag in MPEG-4 files once pictures are encoded; 0: as ever.
  virtual uint32_t tag() const { return 0; }

  /// Whether parameter sets are to be kept out of the encoder's packets.
  virtual bool setsApart() const { return false; }

  /// Turns a packet of the encoder's into one of the stream's; false if memory runs out.
  virtual bool adopt(AVPacket& packet) = 0;

  /// Makes a copied packet the first behind what was encoded, and one of an open group the first
  /// behind something else than what it followed in the input; false if memory runs out.
  virtual bool resume(AVPacket& packet) { return packet.size >= 0; }
  virtual bool open(AVPacket& packet) { return packet.size >= 0; }

 protected:
  std::map<std::string, std::string> options_;
  std::optional<bool> codesFields_;
};

/// Why pictures of a stream can't be encoded at all as they are; "" where they can.
std::string whyNeverEncoded(const AVStream& stream);

/// The form of a stream; null, with the reason, where nothing encoded can stand among its pictures.
std::unique_ptr<StretchForm> makeStretchForm(const AVStream& stream, const PictureIndex& index,
                                             std::string& why);

/// The form of a stream of which nothing is copied.
std::unique_ptr<StretchForm> makeWholeForm(const AVStream& stream, bool setsApart);

/// The first picture of a stream as far as it is told without decoding one.
FramePtr describedPicture(const AVStream& stream);

}  // namespace kestrel
