#include "Buffers.h"

#include <kestrel/BitmapFile.h>
#include <kestrel/BitmapImage.h>

#include <exception>
#include <new>
#include <optional>

namespace kestrel::python {

namespace {

extern "C" int guardedBuffer(PyObject* object, Py_buffer* view, int flags) {
  try {
    return py::detail::pybind11_getbuffer(object, view, flags);
  } catch (py::error_already_set& raised) {
    raised.restore();
  } catch (const std::exception& failure) {
    PyErr_SetString(PyExc_BufferError, failure.what());
  }
  if (view) view->obj = nullptr;
  return -1;
}

}  // namespace

void guardBuffer(py::handle type) {
  reinterpret_cast<PyTypeObject*>(type.ptr())->tp_as_buffer->bf_getbuffer = &guardedBuffer;
}

py::bytes pngOf(const uint8_t* pixels, int width, int height, int bytesPerRow) {
  std::optional<std::vector<uint8_t>> png;
  {
    const py::gil_scoped_release released;
    const auto bitmap = BitmapImage::borrowing(pixels, width, height, bytesPerRow);
    if (bitmap) png = encodedBitmapImage(*bitmap, PictureFormat::kPNG);
  }
  if (!png) throw std::bad_alloc();
  return {reinterpret_cast<const char*>(png->data()), png->size()};
}

void bindBuffers(py::module_& module) {
  py::class_<Plane>(module, "Plane", py::buffer_protocol(),
                    "Numbers of a picture or of sound, which `numpy.asarray` sees as they lie.")
      .def_buffer(&Plane::buffer)
      .def_property_readonly("shape", &Plane::shapeTuple, "How many there are in each dimension.")
      .def_property_readonly(
          "format", [](const Plane& plane) { return plane.format; },
          "The kind of one number, as of the module `struct`.")
      .def("__len__", [](const Plane& plane) { return plane.shape.front(); });
}

}  // namespace kestrel::python
