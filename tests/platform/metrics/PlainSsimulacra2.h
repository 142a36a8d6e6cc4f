#pragma once

#include <vector>

namespace kestrel::test {

/// A picture in linear light, in double precision: R, G, B, plane after plane.
struct PlainPicture {
  int width;
  int height;
  std::vector<double> rgb;
};

/// The score by its definition, one value after another.
double plainSsimulacra2(PlainPicture original, PlainPicture distorted);

}  // namespace kestrel::test
