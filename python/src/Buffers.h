#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "Bindings.h"

namespace kestrel::python {

/// Numbers that arrays are made of without copying them; they live as long as it does.
struct Plane {
  std::shared_ptr<const void> owner;
  const void* data = nullptr;
  std::string format;  ///< of one number, as of Python's `struct`
  ptrdiff_t size = 0;  ///< of one number, bytes
  std::vector<ptrdiff_t> shape;
  std::vector<ptrdiff_t> strides;  ///< bytes

  py::buffer_info buffer() const {
    return {const_cast<void*>(data),
            size,
            format,
            static_cast<ptrdiff_t>(shape.size()),
            shape,
            strides,
            true};
  }

  py::tuple shapeTuple() const {
    py::tuple result(shape.size());
    for (size_t i = 0; i < shape.size(); ++i) result[i] = shape[i];
    return result;
  }
};

/// Has what goes wrong while a class's buffer is made raised: pybind11 lets it end the program.
void guardBuffer(py::handle type);

/// A PNG file of 8-bit pixels: R, G, B, A.
py::bytes pngOf(const uint8_t* pixels, int width, int height, int bytesPerRow);

}  // namespace kestrel::python
