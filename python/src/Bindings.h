#pragma once

#include <pybind11/pybind11.h>

namespace kestrel::python {

namespace py = pybind11;

// Each puts one part of the engine into the module.
void bindFailures(py::module_& module);
void bindBuffers(py::module_& module);
void bindInfo(py::module_& module);
void bindReport(py::module_& module);
void bindMovie(py::module_& module);
void bindImage(py::module_& module);
void bindJobs(py::module_& module);

}  // namespace kestrel::python
