#include <kestrel/BitmapFile.h>
#include <kestrel/BitmapImage.h>
#include <kestrel/EffectManager.h>
#include <kestrel/Filter.h>
#include <kestrel/Image.h>
#include <kestrel/ImageContext.h>
#include <kestrel/convert/Failure.h>
#include <kestrel/convert/PictureFile.h>
#include <kestrel/convert/Text.h>

#include <pybind11/stl.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <iterator>
#include <memory>
#include <new>
#include <numbers>
#include <optional>
#include <string>
#include <vector>

#include "Buffers.h"
#include "Hosting.h"

namespace kestrel::python {

namespace {

/// A recipe whose lower left corner is the origin, and the pixels that it is seen in.
struct ImageObject {
  std::shared_ptr<const Image> recipe;
  int width = 0;
  int height = 0;

  Rect bounds() const {
    return {{0, 0}, {static_cast<double>(width), static_cast<double>(height)}};
  }
};

ImageObject imageOf(std::shared_ptr<const BitmapImage> bitmap) {
  if (!bitmap) throw py::value_error("this is no picture");
  const int width = bitmap->width();
  const int height = bitmap->height();
  return {Image::fromBitmap(std::move(bitmap)), width, height};
}

/// Pixels of a buffer of 8-bit numbers, height by width, of one (grey), three or four components.
ImageObject imageOf(const py::buffer_info& info) {
  const ptrdiff_t components = info.ndim == 3 ? info.shape[2] : 1;
  const bool isKnown = components == 1 || components == 3 || components == 4;
  if (info.itemsize != 1 || (info.ndim != 2 && info.ndim != 3) || !isKnown)
    throw py::value_error(
        "an array of pixels is of 8-bit numbers, height by width by 1, 3 or 4 components");
  const auto height = static_cast<size_t>(info.shape[0]);
  const auto width = static_cast<size_t>(info.shape[1]);
  const auto pixels = std::make_shared<uint8_t[]>(4 * width * height);
  const auto* const from = static_cast<const uint8_t*>(info.ptr);
  const ptrdiff_t next = info.ndim == 3 ? info.strides[2] : 0;
  const py::gil_scoped_release released;
  for (size_t y = 0; y < height; ++y) {
    uint8_t* to = pixels.get() + 4 * width * y;
    for (size_t x = 0; x < width; ++x, to += 4) {
      const uint8_t* const pixel = from + static_cast<ptrdiff_t>(y) * info.strides[0] +
                                   static_cast<ptrdiff_t>(x) * info.strides[1];
      for (ptrdiff_t i = 0; i < 3; ++i) to[i] = pixel[components == 1 ? 0 : i * next];
      to[3] = components == 4 ? pixel[3 * next] : 255;
    }
  }
  return imageOf(BitmapImage::sharing(pixels, static_cast<int>(width), static_cast<int>(height),
                                      static_cast<int>(4 * width)));
}

ImageObject imageFromFile(const std::string& path) {
  const py::gil_scoped_release released;
  std::ifstream file(path, std::ios::binary);
  if (!file) throw Failure::input(path, "cannot open '" + path + "'");
  const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
  auto bitmap = bitmapImageWithData({reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()});
  if (!bitmap) throw Failure::input(path, "'" + path + "' is no picture that can be read");
  return imageOf(std::move(bitmap));
}

/// From a path, an array, a picture of a movie or of PIL, or the bytes of a picture file.
ImageObject imageFrom(const py::object& input) {
  if (py::isinstance<py::str>(input) || py::hasattr(input, "__fspath__"))
    return imageFromFile(pathOf(input));
  if (py::isinstance<py::bytes>(input)) {
    const py::bytes held(input);
    const std::string_view bytes = held;
    return imageOf(
        bitmapImageWithData({reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()}));
  }
  if (py::hasattr(input, "rgba")) return imageOf(py::buffer(input.attr("rgba")).request());
  if (py::hasattr(input, "tobytes") && py::hasattr(input, "convert")) {
    const py::object pil = input.attr("convert")("RGBA");
    const py::bytes held(pil.attr("tobytes")());
    const std::string_view bytes = held;
    const auto [width, height] = py::cast<std::pair<int, int>>(pil.attr("size"));
    const auto pixels = std::make_shared<uint8_t[]>(bytes.size());
    std::ranges::copy(bytes, pixels.get());
    return imageOf(BitmapImage::sharing(pixels, width, height, 4 * width));
  }
  return imageOf(py::buffer(input).request());
}

ImageObject cropped(const ImageObject& image, int x, int y, int width, int height) {
  if (x < 0 || y < 0 || width < 1 || height < 1 || int64_t{x} + width > image.width ||
      int64_t{y} + height > image.height)
    throw Failure::settings("crop: the area does not lie within the picture", "crop");
  const double bottom = image.height - y - height;
  const Rect area{{static_cast<double>(x), bottom},
                  {static_cast<double>(width), static_cast<double>(height)}};
  return {image.recipe->cropped(area)->translated(-x, -bottom), width, height};
}

ImageObject resized(const ImageObject& image, int width, int height) {
  if (width < 1 || height < 1)
    throw Failure::settings("resize: a side is at least one pixel", "size");
  const double x = static_cast<double>(width) / image.width;
  const double y = static_cast<double>(height) / image.height;
  ImageObject result{image.recipe->scaled(x, y), width, height};
  result.recipe = result.recipe->cropped(result.bounds());
  return result;
}

/// About its middle; as large as what comes of it.
ImageObject rotated(const ImageObject& image, double degrees) {
  const auto turn = AffineTransform::rotation(-degrees * std::numbers::pi / 180);
  const auto turned = image.recipe->transformed(turn);
  const Rect place = turn.apply(image.bounds());
  // A quarter turn is no wider for its sine being not quite 0.
  constexpr double kRounding = 1e-6;
  const double width = std::ceil(place.size.width - kRounding);
  const double height = std::ceil(place.size.height - kRounding);
  const double left = (width - place.size.width) / 2 - place.origin.x;
  const double bottom = (height - place.size.height) / 2 - place.origin.y;
  return {turned->translated(left, bottom), static_cast<int>(width), static_cast<int>(height)};
}

ImageObject withEffect(const ImageObject& image, const std::string& name) {
  const auto effect = EffectManager::filterWithName(name);
  const auto* const filter = std::get_if<std::shared_ptr<Filter>>(&effect);
  if (!filter || !*filter)
    throw Failure::settings("effect: there is no effect '" + name + "'" +
                                nearestNames(name, EffectManager::allFilterNames()),
                            "effect");
  (*filter)->setValue(image.recipe, kCIInputImageKey);
  return {(*filter)->outputImage()->cropped(image.bounds()), image.width, image.height};
}

std::shared_ptr<const BitmapImage> rendered(const ImageObject& image) {
  static const ImageContext context;
  auto bitmap = context.bitmapImage(image.recipe, image.bounds());
  if (!bitmap) throw std::bad_alloc();
  return bitmap;
}

Plane pixelsOf(const ImageObject& image) {
  std::shared_ptr<const BitmapImage> bitmap;
  {
    const py::gil_scoped_release released;
    bitmap = rendered(image);
  }
  return {.owner = bitmap,
          .data = bitmap->pixels(),
          .format = "B",
          .size = 1,
          .shape = {bitmap->height(), bitmap->width(), 4},
          .strides = {bitmap->bytesPerRow(), 4, 1}};
}

}  // namespace

void bindImage(py::module_& module) {
  py::class_<ImageObject>(module, "Image",
                          R"(A picture as a recipe: nothing is computed before it is looked at.

    small = kestrel.Image("photo.jpg").effect("1960").resize(320, 240)
    small.save("small.png")

It is made of a file's path or bytes, of an array (height by width by 1, 3 or 4 components of 8
bits), or of a picture of a movie or of PIL.)")
      .def(py::init(&imageFrom), py::arg("input"))
      .def_readonly("width", &ImageObject::width)
      .def_readonly("height", &ImageObject::height)
      .def("crop", &cropped, py::arg("x"), py::arg("y"), py::arg("width"), py::arg("height"),
           "A part of it, in pixels from the upper left corner.")
      .def("resize", &resized, py::arg("width"), py::arg("height"))
      .def("rotate", &rotated, py::arg("degrees"), "Turned clockwise, in a frame that holds it.")
      .def("effect", &withEffect, py::arg("name"), "With one of the looks of `effects()`.")
      .def_property_readonly("pixels", &pixelsOf,
                             "R, G, B, A, not premultiplied, for `numpy.asarray`.")
      .def("to_pil",
           [](const ImageObject& image) {
             const Plane pixels = pixelsOf(image);
             const auto* const data = static_cast<const char*>(pixels.data);
             const py::bytes bytes(data, static_cast<size_t>(pixels.shape[0] * pixels.strides[0]));
             return py::module_::import("PIL.Image")
                 .attr("frombytes")("RGBA", py::make_tuple(image.width, image.height), bytes);
           })
      .def(
          "save",
          [](const ImageObject& image, const py::object& path, bool replace,
             std::optional<int> quality) {
            const std::string target = pathOf(path);
            const py::gil_scoped_release released;
            writePicture(target, *rendered(image), replace, quality);
          },
          py::arg("path"), py::kw_only(), py::arg("replace") = false,
          py::arg("quality") = py::none(), "Writes it as .png, .jpg, .webp or .avif.")
      .def("_repr_png_",
           [](const ImageObject& image) {
             const Plane pixels = pixelsOf(image);
             return pngOf(static_cast<const uint8_t*>(pixels.data), image.width, image.height,
                          static_cast<int>(pixels.strides[0]));
           })
      .def("__repr__", [](const ImageObject& image) {
        return "<kestrel.Image: " + std::to_string(image.width) + "x" +
               std::to_string(image.height) + ">";
      });

  module.def("effects", &EffectManager::allFilterNames, "The names of the looks.");
}

}  // namespace kestrel::python
