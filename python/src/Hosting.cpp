#include "Hosting.h"

#include <kestrel/LMCustomSource.h>
#include <kestrel/MemorySource.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <exception>
#include <mutex>
#include <optional>
#include <string_view>
#include <thread>
#include <utility>

namespace kestrel::python {

namespace {

constexpr auto kPause = std::chrono::milliseconds(50);

/// Bytes of a Python object with `read` and `seek`. Readers of one object take turns.
class FileSource : public LMCustomSource {
 public:
  struct File {
    explicit File(py::object opened) : object(std::move(opened)) {}
    ~File() {
      const py::gil_scoped_acquire acquired;
      object = py::object();
    }

    py::object object;
    std::mutex turn;
    int64_t size = 0;
    std::exception_ptr failure;  // what reading raised first
  };

  explicit FileSource(std::shared_ptr<File> file) : file_(std::move(file)) {}

  std::shared_ptr<LMMediaSource> copy() const override {
    return std::make_shared<FileSource>(file_);
  }
  int64_t filesize() const override { return file_->size; }

  int32_t read(uint8_t* buffer, int32_t size) override {
    const std::lock_guard turn(file_->turn);
    const py::gil_scoped_acquire acquired;
    try {
      file_->object.attr("seek")(read_offset());
      const py::object read = file_->object.attr("read")(size);
      const py::bytes held = py::isinstance<py::bytes>(read)
                                 ? py::reinterpret_borrow<py::bytes>(read)
                                 : py::reinterpret_steal<py::bytes>(PyBytes_FromObject(read.ptr()));
      if (!held) throw py::error_already_set();
      const std::string_view bytes = held;
      if (bytes.size() > static_cast<size_t>(size))
        throw py::value_error("read() has answered more bytes than it was asked for");
      std::copy_n(bytes.begin(), bytes.size(), buffer);
      return static_cast<int32_t>(bytes.size());
    } catch (...) {
      // It cannot pass through the demuxer: whoever asked it raises this.
      if (!file_->failure) file_->failure = std::current_exception();
      constexpr int32_t kInputOutput = -5;
      return kInputOutput;
    }
  }

 private:
  const std::shared_ptr<File> file_;
};

}  // namespace

std::string pathOf(const py::object& path) {
  const py::object named = py::module_::import("os").attr("fspath")(path);
  if (py::isinstance<py::bytes>(path)) throw py::type_error("a path is not of bytes");
  return py::cast<std::string>(py::module_::import("os").attr("fsencode")(named));
}

InputSource inputOf(const py::object& input) {
  if (py::isinstance<py::bytes>(input) || py::isinstance<py::bytearray>(input)) {
    const py::bytes held = py::reinterpret_steal<py::bytes>(PyBytes_FromObject(input.ptr()));
    const std::string_view bytes = held;
    return {.name = "bytes",
            .source = std::make_shared<MemorySource>(
                std::make_shared<const std::vector<uint8_t>>(bytes.begin(), bytes.end()))};
  }
  if (!py::hasattr(input, "read") || !py::hasattr(input, "seek")) return {.name = pathOf(input)};
  const auto file = std::make_shared<FileSource::File>(input);
  constexpr int kFromEnd = 2;
  file->size = py::cast<int64_t>(input.attr("seek")(0, kFromEnd));
  const py::object name = py::getattr(input, "name", py::str("file"));
  return {.name = py::isinstance<py::str>(name) ? py::cast<std::string>(name) : "file",
          .source = std::make_shared<FileSource>(file),
          .check = [file] {
            if (file->failure) std::rethrow_exception(std::exchange(file->failure, nullptr));
          }};
}

void Attendant::attend(const std::function<void()>& work, const std::function<void()>& look) const {
  std::mutex lock;
  std::condition_variable news;
  bool isDone = false;
  std::exception_ptr failure;
  std::thread worker([&] {
    try {
      work();
    } catch (...) {
      failure = std::current_exception();
    }
    const std::lock_guard guard(lock);
    isDone = true;
    news.notify_all();
  });
  const auto join = [&] {
    const py::gil_scoped_release released;
    worker.join();
  };
  try {
    for (bool isLast = false; !isLast;) {
      {
        const py::gil_scoped_release released;
        std::unique_lock guard(lock);
        isLast = news.wait_for(guard, kPause, [&] { return isDone; });
      }
      if (PyErr_CheckSignals() != 0) throw py::error_already_set();
      look();
    }
  } catch (...) {
    *isStopped_ = true;
    join();
    *isStopped_ = false;
    throw;
  }
  join();
  if (failure) std::rethrow_exception(failure);
}

void serve(const py::object& progress, const py::object& note,
           const std::function<void(const Events&)>& work) {
  const Attendant attendant;
  std::mutex lock;
  std::optional<Progress> latest;
  std::deque<std::string> notes;
  Events events;
  events.interrupt = attendant.interrupt();
  events.progress = [&](const Progress& done) {
    const std::lock_guard guard(lock);
    latest = done;
  };
  events.note = [&](const std::string& sentence) {
    const std::lock_guard guard(lock);
    notes.push_back(sentence);
  };
  attendant.attend([&] { work(events); },
                   [&] {
                     std::optional<Progress> reached;
                     std::deque<std::string> sentences;
                     {
                       const std::lock_guard guard(lock);
                       reached = std::exchange(latest, std::nullopt);
                       sentences.swap(notes);
                     }
                     if (!note.is_none())
                       for (const std::string& sentence : sentences) note(textOf(sentence));
                     if (!progress.is_none() && reached) progress(*reached);
                   });
}

py::str textOf(const std::string& bytes) {
  PyObject* const text =
      PyUnicode_DecodeUTF8(bytes.data(), static_cast<Py_ssize_t>(bytes.size()), "replace");
  if (!text) throw py::error_already_set();
  return py::reinterpret_steal<py::str>(text);
}

py::list textsOf(const std::vector<std::string>& texts) {
  py::list list;
  for (const std::string& text : texts) list.append(textOf(text));
  return list;
}

std::vector<NamedValue> namedValues(const py::kwargs& options) {
  const auto text = [](const py::handle& value) -> std::string {
    if (py::isinstance<py::bool_>(value)) return py::cast<bool>(value) ? "true" : "false";
    return py::cast<std::string>(py::str(value));
  };
  const auto sides = [&](const py::sequence& sequence, size_t first) {
    return text(sequence[first]) + "x" + text(sequence[first + 1]);
  };
  std::vector<NamedValue> values;
  for (const auto& [key, value] : options) {
    if (value.is_none()) continue;
    NamedValue named{py::cast<std::string>(key), {}};
    std::replace(named.name.begin(), named.name.end(), '_', '-');
    if (!py::isinstance<py::list>(value) && !py::isinstance<py::tuple>(value)) {
      named.values.push_back(text(value));
    } else {
      const auto sequence = py::reinterpret_borrow<py::sequence>(value);
      if (named.name == "size" && sequence.size() == 2) {
        named.values.push_back(sides(sequence, 0));
      } else if (named.name == "crop" && sequence.size() == 4) {
        named.values.push_back(text(sequence[0]) + "," + text(sequence[1]) + "," +
                               sides(sequence, 2));
      } else {
        for (const auto& entry : sequence) named.values.push_back(text(entry));
      }
    }
    values.push_back(std::move(named));
  }
  return values;
}

}  // namespace kestrel::python
