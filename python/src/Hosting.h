#pragma once

#include <kestrel/convert/Events.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Bindings.h"

namespace kestrel {
class LMMediaSource;
}

namespace kestrel::python {

/// Where an input comes from: a path, `bytes`, or an object with `read` and `seek`.
struct InputSource {
  std::string name;
  std::shared_ptr<LMMediaSource> source;  ///< null for a path
};

InputSource inputOf(const py::object& input);

/// A path of a file, as text.
std::string pathOf(const py::object& path);

/// Does work on another thread, without Python's lock, and meanwhile tells `progress` and `note`
/// (None: nobody) on this one what happens, and lets signals in. What these raise ends the work
/// and is raised here.
void serve(const py::object& progress, const py::object& note,
           const std::function<void(const Events&)>& work);

/// An interrupt for work on the calling thread: Ctrl-C and other signals whose handlers raise.
Interrupt signals();

/// Options of Python by the names of the command line: underscores for dashes, True and False for
/// switches, sequences for lists. None says nothing.
struct NamedValue {
  std::string name;
  std::vector<std::string> values;
};
std::vector<NamedValue> namedValues(const py::kwargs& options);

}  // namespace kestrel::python
