#pragma once

#include <kestrel/convert/Events.h>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "Bindings.h"

namespace kestrel {
class LMMediaSource;
}

namespace kestrel::python {

/// Where an input comes from: a path, `bytes`, or an object with `read` and `seek`.
struct InputSource {
  std::string name;
  std::shared_ptr<LMMediaSource> source = {};  ///< null for a path
  std::function<void()> check = [] {};         ///< raises what reading it has raised
};

InputSource inputOf(const py::object& input);

/// A path of a file, as the system has it.
std::string pathOf(const py::object& path);

/// Does work on another thread, without Python's lock, and meanwhile tells `progress` and `note`
/// (None: nobody) on this one what happens, and lets signals in. What these raise ends the work
/// and is raised here.
void serve(const py::object& progress, const py::object& note,
           const std::function<void(const Events&)>& work);

/// Has work done without Python's lock while this thread lets signals in: what their handlers raise
/// ends it. Copies belong together.
class Attendant {
 public:
  /// What the work is to ask.
  Interrupt interrupt() const {
    return [isStopped = isStopped_] { return isStopped->load(); };
  }

  /// Does the work on another thread, and raises here what it or a handler has raised. `look` is
  /// called now and then, and once more at the end, with Python's lock.
  void attend(
      const std::function<void()>& work, const std::function<void()>& look = [] {}) const;

  template <typename Work>
  auto operator()(Work work) const {
    std::optional<std::invoke_result_t<Work>> answer;
    attend([&] { answer.emplace(work()); });
    return std::move(*answer);
  }

 private:
  std::shared_ptr<std::atomic<bool>> isStopped_ = std::make_shared<std::atomic<bool>>(false);
};

/// Text of a file, whatever its bytes are.
py::str textOf(const std::string& bytes);
py::list textsOf(const std::vector<std::string>& texts);

/// Options of Python by the names of the command line: underscores for dashes, True and False for
/// switches, sequences for lists. None says nothing.
struct NamedValue {
  std::string name;
  std::vector<std::string> values;
};
std::vector<NamedValue> namedValues(const py::kwargs& options);

}  // namespace kestrel::python
