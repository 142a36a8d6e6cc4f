#pragma once

struct AVStream;

/// How a player turns a stream's pictures before it shows them: what phones note that were held
/// sideways.
struct Orientation {
  bool mirrored = false;        ///< left and right, before the turn
  double counterclockwise = 0;  ///< degrees, -180 to 180

  bool operator==(const Orientation&) const = default;
};

Orientation orientationOf(const AVStream& stream);
