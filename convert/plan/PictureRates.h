#pragma once

#include <kestrel/LMFFFormat.h>

#include <optional>

struct AVCodec;
struct AVOutputFormat;

namespace kestrel {

/// Pictures per second that an encoder opens with and a container can tell.
class PictureRates {
 public:
  PictureRates(const AVCodec& encoder, const AVOutputFormat& container);

  bool contains(Rational rate) const;

  /// The rate itself where it is among them, otherwise the nearest.
  Rational nearest(Rational rate) const;

  /// The rate itself where it is among them, otherwise the next lower one; none where all are
  /// higher.
  std::optional<Rational> upTo(Rational most) const;

  /// The rate that users name, which may be rounded: 29.97. Throws a `Failure` of the setting where
  /// there is none like it.
  Rational asked(Rational rate) const;

  /// The fastest up to a limit that users set. Throws a `Failure` of the setting where there is
  /// none so slow.
  Rational limited(Rational most) const;

 private:
  template <typename Visit>
  void forEach(Visit visit) const;

  const AVCodec& encoder_;
  const AVOutputFormat& container_;
};

}  // namespace kestrel
