#include <kestrel/Version.h>

#include "Bindings.h"

PYBIND11_MODULE(_kestrel, module) {
  using namespace kestrel::python;
  module.attr("__version__") = kestrel::version();
  module.doc() = "A media engine: opens, tells, shows, converts, cuts, joins and compares movies.";
  bindFailures(module);
  bindBuffers(module);
  bindInfo(module);
  bindReport(module);
  bindMovie(module);
  bindImage(module);
  bindJobs(module);
}
