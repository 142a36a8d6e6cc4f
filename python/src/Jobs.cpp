#include <kestrel/LMMediaSource.h>
#include <kestrel/convert/Compare.h>
#include <kestrel/convert/ContactSheet.h>
#include <kestrel/convert/Conversion.h>
#include <kestrel/convert/ConversionOptions.h>
#include <kestrel/convert/Cut.h>
#include <kestrel/convert/Failure.h>
#include <kestrel/convert/Join.h>
#include <kestrel/convert/Thumbnail.h>
#include <kestrel/convert/Values.h>
#include <kestrel/convert/WaveformFile.h>

#include <pybind11/stl.h>

#include <cstring>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Buffers.h"
#include "Hosting.h"
#include "Times.h"

namespace kestrel::python {

namespace {

ConversionOptions optionsOf(const py::kwargs& keywords) {
  ConversionOptions options;
  for (const NamedValue& named : namedValues(keywords))
    for (const std::string& value : named.values) options.push_back({named.name, value});
  return options;
}

/// What a job answers, which it does on another thread.
template <typename Job>
auto served(const py::object& progress, const py::object& note, Job job) {
  std::optional<std::invoke_result_t<Job, const Events&>> answer;
  serve(progress, note, [&](const Events& events) { answer = job(events); });
  return std::move(*answer);
}

Report convert(const py::object& input, const py::object& output, bool replace,
               const py::object& progress, const py::object& note, const py::kwargs& options) {
  const InputSource source = inputOf(input);
  ConversionSettings settings{
      .input = source.name, .source = source.source, .output = pathOf(output), .replaces = replace};
  applyOptions(optionsOf(options), settings);
  try {
    Report report = served(progress, note,
                           [&](const Events& events) { return Conversion(settings).run(events); });
    source.check();
    return report;
  } catch (const Failure&) {
    source.check();
    throw;
  }
}

using Span = std::pair<double, std::optional<double>>;

std::vector<CutSpan> spansOf(const std::vector<Span>& spans) {
  std::vector<CutSpan> result;
  for (const auto& [start, end] : spans)
    result.push_back({microseconds(start), end ? std::optional(microseconds(*end)) : std::nullopt});
  return result;
}

CutReport cutMovie(const py::object& input, const py::object& output, const std::vector<Span>& keep,
                   const std::vector<Span>& drop, const std::string& accuracy, bool replace,
                   const py::object& progress, const py::object& note) {
  if (accuracy != "exact" && accuracy != "key")
    throw Failure::settings("accuracy: '" + accuracy + "' is neither 'exact' nor 'key'",
                            "accuracy");
  const CutSettings settings{
      .input = pathOf(input),
      .output = pathOf(output),
      .keep = spansOf(keep),
      .drop = spansOf(drop),
      .accuracy = accuracy == "key" ? CutSettings::Accuracy::kKey : CutSettings::Accuracy::kExact,
      .replaces = replace};
  return served(progress, note, [&](const Events& events) { return cut(settings, events); });
}

Report joinMovies(const std::vector<py::object>& inputs, const py::object& output,
                  const std::string& reencode, bool replace, const py::object& progress,
                  const py::object& note) {
  using Reencode = JoinSettings::Reencode;
  JoinSettings settings{.output = pathOf(output), .replaces = replace};
  for (const py::object& input : inputs) settings.inputs.push_back({.path = pathOf(input)});
  if (reencode == "never")
    settings.reencode = Reencode::kNever;
  else if (reencode == "always")
    settings.reencode = Reencode::kAlways;
  else if (reencode != "auto")
    throw Failure::settings("reencode: '" + reencode + "' is none of 'auto', 'never', 'always'",
                            "reencode");
  return served(progress, note, [&](const Events& events) { return join(settings, events); });
}

Comparison compareMovies(const py::object& original, const py::object& distorted,
                         const std::string& metric, int every, std::optional<double> offset,
                         const py::object& plot, const py::object& worst, bool replace,
                         const py::object& progress, const py::object& note) {
  CompareSettings settings{.original = pathOf(original),
                           .distorted = pathOf(distorted),
                           .every = every,
                           .offset = offset,
                           .plot = plot.is_none() ? "" : pathOf(plot),
                           .worst = worst.is_none() ? "" : pathOf(worst),
                           .replaces = replace};
  if (metric == "ssim")
    settings.metric = PictureMetric::kSsim;
  else if (metric == "psnr")
    settings.metric = PictureMetric::kPsnr;
  else if (metric != "ssimulacra2")
    throw Failure::settings("metric: '" + metric + "' is none of 'ssimulacra2', 'ssim', 'psnr'",
                            "metric");
  return served(progress, note, [&](const Events& events) { return compare(settings, events); });
}

/// A time in seconds, or text such as "50%" or "1:30".
std::optional<Moment> momentOf(const char* name, const py::object& time) {
  if (time.is_none()) return std::nullopt;
  if (py::isinstance<py::str>(time)) return parseMoment(name, py::cast<std::string>(time));
  return Moment(microseconds(py::cast<double>(time)));
}

PictureBox boxOf(const py::object& size) {
  if (size.is_none()) return {};
  if (py::isinstance<py::str>(size)) return parseSize("size", py::cast<std::string>(size));
  const auto [width, height] = py::cast<std::pair<std::optional<int>, std::optional<int>>>(size);
  return {.width = width, .height = height};
}

template <typename Settings>
void applyCommon(Settings& settings, const py::object& size, std::optional<int> quality, bool best,
                 bool replace, const py::kwargs& look) {
  settings.size = boxOf(size);
  settings.quality = quality;
  settings.best = best;
  settings.replaces = replace;
  applyOptions(optionsOf(look), settings.look);
}

Report thumbnail(const py::object& input, const py::object& output, const py::object& time,
                 const py::object& size, std::optional<int> quality, bool best, bool replace,
                 const py::kwargs& look) {
  ThumbnailSettings settings{
      .input = pathOf(input), .output = pathOf(output), .time = momentOf("time", time)};
  applyCommon(settings, size, quality, best, replace, look);
  return served(py::none(), py::none(),
                [&](const Events& events) { return writeThumbnail(settings, events); });
}

Report contactSheet(const py::object& input, const py::object& output, int columns, int rows,
                    const py::object& size, std::optional<int> quality, bool best, bool replace,
                    const py::kwargs& look) {
  ContactSheetSettings settings{
      .input = pathOf(input), .output = pathOf(output), .columns = columns, .rows = rows};
  applyCommon(settings, size, quality, best, replace, look);
  return served(py::none(), py::none(),
                [&](const Events& events) { return writeContactSheet(settings, events); });
}

Report saveWaveform(const py::object& input, const py::object& output, double pointsPerSecond,
                    bool splitChannels, std::pair<int, int> size, bool replace,
                    const py::object& progress) {
  WaveformFileSettings settings{.input = pathOf(input),
                                .output = pathOf(output),
                                .replaces = replace,
                                .width = size.first,
                                .height = size.second};
  settings.form = waveformFormOf(settings.output);
  settings.waveform.pointsPerSecond = pointsPerSecond;
  settings.waveform.splitChannels = splitChannels;
  return served(progress, py::none(),
                [&](const Events& events) { return writeWaveform(settings, events); });
}

/// The outline of sound as numbers: channels by points by least, greatest and root mean square.
struct Outline {
  Plane plane;
  double pointsPerSecond = 0;
  Report report;
};

Outline waveform(const py::object& input, double pointsPerSecond, bool splitChannels,
                 const py::object& progress) {
  static_assert(sizeof(WaveformPoint) == 3 * sizeof(float));
  const std::string path = pathOf(input);
  const DrawnWaveform drawn = served(progress, py::none(), [&](const Events& events) {
    return drawWaveform(path, {.pointsPerSecond = pointsPerSecond, .splitChannels = splitChannels},
                        events);
  });
  const Waveform& outline = drawn.waveform;
  const size_t length = outline.length();
  const auto points =
      std::make_shared<std::vector<WaveformPoint>>(outline.channels.size() * length);
  for (size_t i = 0; i < outline.channels.size(); ++i)
    std::ranges::copy(outline.channels[i], points->begin() + static_cast<ptrdiff_t>(i * length));
  constexpr ptrdiff_t kSize = sizeof(float);
  const auto count = static_cast<ptrdiff_t>(length);
  const void* const data = points->data();
  return {{.owner = points,
           .data = data,
           .format = "f",
           .size = kSize,
           .shape = {static_cast<ptrdiff_t>(outline.channels.size()), count, 3},
           .strides = {count * 3 * kSize, 3 * kSize, kSize}},
          outline.pointsPerSecond(),
          drawn.report};
}

}  // namespace

void bindJobs(py::module_& module) {
  const auto none = py::none();
  module.def("convert", &convert, py::arg("input"), py::arg("output"), py::kw_only(),
             py::arg("replace") = false, py::arg("progress") = none, py::arg("note") = none,
             R"(Converts a movie or sound file.

    kestrel.convert("clip.mov", "clip.mp4", size="720p", crf=20)

Options are those of `kestrel convert`, with underscores; `input` may also be `bytes` or an object
with `read` and `seek`. `progress` is called with a `Progress`, `note` with sentences; what they
raise, and Ctrl-C, ends the work and leaves nothing behind.)");
  module.def("cut", &cutMovie, py::arg("input"), py::arg("output"), py::kw_only(),
             py::arg("keep") = std::vector<Span>{}, py::arg("drop") = std::vector<Span>{},
             py::arg("accuracy") = "exact", py::arg("replace") = false, py::arg("progress") = none,
             py::arg("note") = none,
             "Keeps or drops spans, pairs of seconds (an end may be None), without encoding.");
  module.def("join", &joinMovies, py::arg("inputs"), py::arg("output"), py::kw_only(),
             py::arg("reencode") = "auto", py::arg("replace") = false, py::arg("progress") = none,
             py::arg("note") = none, "Puts files one behind the other.");
  module.def("compare", &compareMovies, py::arg("original"), py::arg("distorted"), py::kw_only(),
             py::arg("metric") = "ssimulacra2", py::arg("every") = 1, py::arg("offset") = none,
             py::arg("plot") = none, py::arg("worst") = none, py::arg("replace") = false,
             py::arg("progress") = none, py::arg("note") = none,
             "Compares a copy with its original as people see it.");
  module.def("thumbnail", &thumbnail, py::arg("input"), py::arg("output"), py::kw_only(),
             py::arg("time") = none, py::arg("size") = none, py::arg("quality") = none,
             py::arg("best") = false, py::arg("replace") = false,
             "Draws one picture into a file, by default that at a tenth of the length.");
  module.def("contact_sheet", &contactSheet, py::arg("input"), py::arg("output"), py::kw_only(),
             py::arg("columns") = 4, py::arg("rows") = 5, py::arg("size") = none,
             py::arg("quality") = none, py::arg("best") = false, py::arg("replace") = false,
             "Draws pictures from all over a movie on one sheet.");

  py::class_<Outline>(module, "Waveform", py::buffer_protocol(),
                      "The outline of sound: channels by points by (least, greatest, RMS).")
      .def_buffer([](const Outline& outline) { return outline.plane.buffer(); })
      .def_readonly("points_per_second", &Outline::pointsPerSecond)
      .def_readonly("report", &Outline::report)
      .def_property_readonly("shape",
                             [](const Outline& outline) { return outline.plane.shapeTuple(); });
  module.def("waveform", &waveform, py::arg("input"), py::kw_only(),
             py::arg("points_per_second") = 100.0, py::arg("split_channels") = false,
             py::arg("progress") = none, "The outline of a file's sound as numbers.");
  module.def("save_waveform", &saveWaveform, py::arg("input"), py::arg("output"), py::kw_only(),
             py::arg("points_per_second") = 100.0, py::arg("split_channels") = false,
             py::arg("size") = std::pair(1200, 240), py::arg("replace") = false,
             py::arg("progress") = none, "The same into a file: .json, .dat or .png.");
}

}  // namespace kestrel::python
