#include <kestrel/convert/Failure.h>

#include <exception>
#include <utility>

#include "Bindings.h"
#include "Hosting.h"

namespace kestrel::python {

namespace {

const char* classOf(Failure::Kind kind) {
  switch (kind) {
    case Failure::Kind::kSettings:
      return "SettingsError";
    case Failure::Kind::kInput:
      return "InputError";
    case Failure::Kind::kOutput:
      return "OutputError";
    case Failure::Kind::kExists:
      return "ExistsError";
    case Failure::Kind::kInterrupted:
      return "Interrupted";
  }
  return "Error";
}

}  // namespace

void bindFailures(py::module_&) {
  py::register_exception_translator([](std::exception_ptr thrown) {
    try {
      if (thrown) std::rethrow_exception(std::move(thrown));
    } catch (const Failure& failure) {
      const py::object type =
          py::module_::import("kestrel._failures").attr(classOf(failure.kind()));
      const py::object value = type(textOf(failure.what()), textOf(failure.subject()));
      PyErr_SetObject(type.ptr(), value.ptr());
    }
  });
}

}  // namespace kestrel::python
