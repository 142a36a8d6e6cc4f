#include "PictureObject.h"

#include <pybind11/stl.h>

#include <kestrel/LMFFImage.h>
#include <kestrel/convert/PictureFile.h>

#include <algorithm>
#include <string>
#include <vector>

#include "Buffers.h"
#include "Hosting.h"
#include "Times.h"

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/pixdesc.h>
}

namespace kestrel::python {

PictureReading::PictureReading(const PicturesSettings& settings, const Interrupt& interrupt)
    : hasSubtitles_(!settings.look.subtitles.empty() || settings.look.subtitleTrack) {
  pictures_.emplace(settings, interrupt);
}

Pictures& PictureReading::opened() {
  if (!pictures_) throw py::value_error("the movie is closed");
  return *pictures_;
}

void PictureReading::setSize(const Sides& size) {
  const Size wanted =
      size ? Size{static_cast<double>(size->first), static_cast<double>(size->second)}
           : opened().size();
  if (!(opened().outputSize() == wanted)) opened().setOutputSize(wanted);
}

std::optional<int64_t> PictureReading::duration() {
  const std::lock_guard guard(turn_);
  return opened().duration();
}

Size PictureReading::size() {
  const std::lock_guard guard(turn_);
  return opened().size();
}

PictureObject PictureReading::at(int64_t time, const Sides& size) {
  const std::lock_guard guard(turn_);
  setSize(size);
  return object(opened().shownAt(time));
}

std::optional<PictureObject> PictureReading::next(const Sides& size) {
  const std::lock_guard guard(turn_);
  setSize(size);
  const auto shown = opened().next();
  return shown ? std::optional(object(*shown)) : std::nullopt;
}

/// Subtitles are drawn at once, as they are read with the pictures.
PictureObject PictureReading::object(const Pictures::Shown& shown) {
  return {shared_from_this(), shown, opened().outputSize(),
          hasSubtitles_ ? pixels(shown) : nullptr};
}

std::shared_ptr<const BitmapImage> PictureReading::pixels(const Pictures::Shown& shown) {
  return hasSubtitles_ ? opened().pictureAt(shown.start) : opened().drawn(shown);
}

std::shared_ptr<const BitmapImage> PictureReading::drawn(const Pictures::Shown& shown, Size size) {
  const std::lock_guard guard(turn_);
  if (!(opened().outputSize() == size)) opened().setOutputSize(size);
  return pixels(shown);
}

void PictureReading::close() {
  const std::lock_guard guard(turn_);
  pictures_.reset();
}

PictureObject::PictureObject(std::shared_ptr<PictureReading> reading, Pictures::Shown shown,
                             Size size, std::shared_ptr<const BitmapImage> bitmap)
    : reading_(std::move(reading)), shown_(std::move(shown)), size_(size) {
  if (bitmap) std::call_once(drawing_->once, [&] { drawing_->bitmap = std::move(bitmap); });
}

const std::shared_ptr<const BitmapImage>& PictureObject::bitmap() const {
  std::call_once(drawing_->once, [this] { drawing_->bitmap = reading_->drawn(shown_, size_); });
  return drawing_->bitmap;
}

namespace {

const BitmapImage& drawn(const PictureObject& picture) {
  const py::gil_scoped_release released;
  return *picture.bitmap();
}

/// The pixels of a drawn picture, as many of R, G, B, A as asked for.
Plane pixels(const PictureObject& picture, ptrdiff_t components) {
  const BitmapImage& bitmap = drawn(picture);
  return {.owner = picture.bitmap(),
          .data = bitmap.pixels(),
          .format = "B",
          .size = 1,
          .shape = {bitmap.height(), bitmap.width(), components},
          .strides = {bitmap.bytesPerRow(), 4, 1}};
}

const AVPixFmtDescriptor& formatOf(const AVFrame& frame) {
  const auto* format = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(frame.format));
  constexpr uint64_t kUnreadable = AV_PIX_FMT_FLAG_PAL | AV_PIX_FMT_FLAG_HWACCEL |
                                   AV_PIX_FMT_FLAG_BITSTREAM | AV_PIX_FMT_FLAG_BE;
  if (!format || (format->flags & kUnreadable))
    throw py::value_error("the samples of this format do not lie in planes");
  return *format;
}

/// The decoded samples as they lie: height by width, by components where several share a plane.
std::vector<Plane> planesOf(const PictureObject& picture) {
  const std::shared_ptr<LMFFImage> owner = picture.shown().frame;
  const AVFrame& frame = *owner->getFrame();
  const AVPixFmtDescriptor& format = formatOf(frame);
  std::vector<Plane> planes;
  for (int number = 0; number < av_pix_fmt_count_planes(static_cast<AVPixelFormat>(frame.format));
       ++number) {
    ptrdiff_t components = 0;
    const AVComponentDescriptor* first = nullptr;
    for (int i = 0; i < format.nb_components; ++i) {
      const AVComponentDescriptor& component = format.comp[i];
      if (component.plane != number) continue;
      ++components;
      if (!first || component.offset < first->offset) first = &component;
    }
    if (!first) continue;
    const bool isChroma = first == &format.comp[1] || first == &format.comp[2];
    const bool isHalved = isChroma && !(format.flags & AV_PIX_FMT_FLAG_RGB);
    const bool isFloat = (format.flags & AV_PIX_FMT_FLAG_FLOAT) != 0;
    const ptrdiff_t size = isFloat ? 4 : (first->depth > 8 ? 2 : 1);
    if (components * size != first->step && components > 1)
      throw py::value_error("the samples of this format do not lie side by side");
    Plane plane{
        .owner = owner,
        .data = frame.data[number],
        .format = isFloat ? "f" : (size == 2 ? "H" : "B"),
        .size = size,
        .shape = {isHalved ? AV_CEIL_RSHIFT(frame.height, format.log2_chroma_h) : frame.height,
                  isHalved ? AV_CEIL_RSHIFT(frame.width, format.log2_chroma_w) : frame.width},
        .strides = {frame.linesize[number], first->step}};
    if (components > 1) {
      plane.shape.push_back(components);
      plane.strides.push_back(size);
    }
    planes.push_back(std::move(plane));
  }
  return planes;
}

py::object toPil(const PictureObject& picture) {
  const BitmapImage& bitmap = drawn(picture);
  const py::bytes bytes(
      reinterpret_cast<const char*>(bitmap.pixels()),
      static_cast<size_t>(bitmap.bytesPerRow()) * static_cast<size_t>(bitmap.height()));
  return py::module_::import("PIL.Image")
      .attr("frombytes")("RGBA", py::make_tuple(bitmap.width(), bitmap.height()), bytes);
}

}  // namespace

void bindPicture(py::module_& module) {
  py::class_<PictureObject> type(
      module, "Picture", py::buffer_protocol(),
      "A picture of a movie. `numpy.asarray` sees its pixels: height by width by R, G, B, 8 bits.");
  type.def_buffer([](const PictureObject& picture) { return pixels(picture, 3).buffer(); })
      .def_property_readonly(
          "time", [](const PictureObject& picture) { return seconds(picture.shown().start); },
          "When it is shown, seconds from the movie's start.")
      .def_property_readonly(
          "duration",
          [](const PictureObject& picture) {
            return seconds(picture.shown().end - picture.shown().start);
          },
          "For how long, seconds.")
      .def_property_readonly(
          "width",
          [](const PictureObject& picture) { return static_cast<int>(picture.size().width); },
          "Of its pixels as they are drawn.")
      .def_property_readonly(
          "height",
          [](const PictureObject& picture) { return static_cast<int>(picture.size().height); })
      .def_property_readonly(
          "rgba", [](const PictureObject& picture) { return pixels(picture, 4); },
          "Its pixels with alpha, not premultiplied.")
      .def_property_readonly(
          "format",
          [](const PictureObject& picture) {
            const char* name = av_get_pix_fmt_name(
                static_cast<AVPixelFormat>(picture.shown().frame->getFrame()->format));
            return std::string(name ? name : "");
          },
          "How the decoded samples lie, such as 'yuv420p10le'.")
      .def_property_readonly("planes", &planesOf,
                             "The decoded samples, 8 or 16 bits wide, before turn and look.")
      .def(
          "__array__",
          [](const PictureObject& picture, const py::args& types, const py::kwargs& options) {
            // NumPy takes the buffer, and asks for this where that has failed: it raises why.
            return py::module_::import("numpy").attr("array")(pixels(picture, 3), *types,
                                                              **options);
          },
          "For NumPy.")
      .def("to_pil", &toPil, "The same as an image of PIL.")
      .def(
          "save",
          [](const PictureObject& picture, const py::object& path, bool replace,
             std::optional<int> quality) {
            const std::string target = pathOf(path);
            const py::gil_scoped_release released;
            writePicture(target, *picture.bitmap(), replace, quality);
          },
          py::arg("path"), py::kw_only(), py::arg("replace") = false,
          py::arg("quality") = py::none(), "Writes it as .png, .jpg, .webp or .avif.")
      .def("_repr_png_",
           [](const PictureObject& picture) {
             const BitmapImage& bitmap = drawn(picture);
             return pngOf(bitmap.pixels(), bitmap.width(), bitmap.height(), bitmap.bytesPerRow());
           })
      .def("__repr__", [](const PictureObject& picture) {
        return "<kestrel.Picture: " + std::to_string(static_cast<int>(picture.size().width)) + "x" +
               std::to_string(static_cast<int>(picture.size().height)) + " at " +
               std::to_string(seconds(picture.shown().start)) + " s>";
      });
  guardBuffer(type);
}

}  // namespace kestrel::python
