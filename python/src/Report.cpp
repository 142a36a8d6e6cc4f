#include <kestrel/convert/Report.h>

#include <pybind11/stl.h>

#include <kestrel/convert/Compare.h>
#include <kestrel/convert/Cut.h>
#include <kestrel/convert/Events.h>

#include "Bindings.h"
#include "Hosting.h"
#include "Times.h"

namespace kestrel::python {

namespace {

const char* nameOf(Report::Outcome outcome) {
  switch (outcome) {
    case Report::Outcome::kDone:
      return "done";
    case Report::Outcome::kDoneInPart:
      return "done in part";
    case Report::Outcome::kInterrupted:
      return "interrupted";
  }
  return "";
}

}  // namespace

void bindReport(py::module_& module) {
  py::class_<Progress>(module, "Progress", "How far a piece of work is.")
      .def_readonly("time", &Progress::time, "Seconds of the result that are done.")
      .def_readonly("duration", &Progress::duration, "Seconds of the whole; None: not known.")
      .def_readonly("pictures", &Progress::pictures, "Pictures done.")
      .def_property_readonly(
          "share",
          [](const Progress& progress) {
            const double whole = progress.duration.value_or(0);
            return whole > 0 ? std::optional(std::min(progress.time / whole, 1.0)) : std::nullopt;
          },
          "From 0 to 1; None: not known.");

  py::class_<LoudnessChange>(module, "LoudnessChange", "What became of a track's loudness.")
      .def_readonly("stream", &LoudnessChange::stream, "Its place among the result's sound tracks.")
      .def_readonly("before", &LoudnessChange::before, "LUFS; None: silence.")
      .def_readonly("gain", &LoudnessChange::gain, "dB.")
      .def_readonly("after", &LoudnessChange::after, "LUFS; None: silence.")
      .def_readonly("limited", &LoudnessChange::isLimited, "Peaks were turned down.");

  py::class_<QualityReached>(module, "QualityReached", "What came of a target quality.")
      .def_readonly("target", &QualityReached::target)
      .def_readonly("percentile5", &QualityReached::percentile5)
      .def_readonly("mean", &QualityReached::mean)
      .def_readonly("least", &QualityReached::least)
      .def_readonly("crf", &QualityReached::crf, "What the encoder was told.")
      .def_readonly("copied", &QualityReached::isCopied, "The source's pictures were copied.")
      .def_readonly("remark", &QualityReached::remark);

  py::class_<Report>(module, "Report", "What came of a piece of work that has not failed.")
      .def_property_readonly(
          "outcome", [](const Report& report) { return nameOf(report.outcome); },
          "'done', or 'done in part': the input ended early or was damaged.")
      .def_property_readonly("whole", &Report::isWhole, "Whether all is there.")
      .def_property_readonly(
          "reached", [](const Report& report) { return seconds(report.reached); },
          "Where the input's data ended, seconds.")
      .def_property_readonly(
          "promised", [](const Report& report) { return seconds(report.promised); },
          "Where it had promised to end, seconds; None: nowhere.")
      .def_property_readonly(
          "findings", [](const Report& report) { return textsOf(report.findings); },
          "What was wrong with the input, sentences.")
      .def_property_readonly(
          "left_out", [](const Report& report) { return textsOf(report.leftOut); },
          "What of it is not in the result, sentences.")
      .def_property_readonly(
          "encoded", [](const Report& report) { return textsOf(report.encoded); },
          "What was encoded in place of copied, and why.")
      .def_readonly("loudness", &Report::loudness)
      .def_readonly("quality", &Report::quality)
      .def("__bool__", &Report::isWhole)
      .def("__repr__", [](const Report& report) {
        return std::string("<kestrel.Report: ") + nameOf(report.outcome) + ">";
      });

  py::class_<CutStretch>(module, "CutStretch", "A stretch of a stream in a cut's result.")
      .def_readonly("kind", &CutStretch::kind, "'video' or 'audio'.")
      .def_readonly("stream", &CutStretch::stream, "The input's.")
      .def_property_readonly("start",
                             [](const CutStretch& stretch) { return seconds(stretch.start); })
      .def_property_readonly("end", [](const CutStretch& stretch) { return seconds(stretch.end); })
      .def_readonly("encoded", &CutStretch::isEncoded, "Else its packets were copied.")
      .def_readonly("packets", &CutStretch::packets)
      .def_readonly("why", &CutStretch::why, "It was encoded.")
      .def_readonly("ssim", &CutStretch::ssim);

  py::class_<CutReport>(module, "CutReport", "What became of a cut.")
      .def_readonly("report", &CutReport::report)
      .def_readonly("stretches", &CutReport::stretches)
      .def_readonly("seams", &CutReport::seams, "That were decoded again and compared.")
      .def_readonly("equal_pictures", &CutReport::equalPictures)
      .def_readonly("alike_pictures", &CutReport::alikePictures)
      .def("__bool__", [](const CutReport& cut) { return cut.report.isWhole(); });

  py::class_<PictureScore>(module, "PictureScore", "What one pair of pictures came to.")
      .def_property_readonly("time", [](const PictureScore& score) { return seconds(score.time); })
      .def_property_readonly("distorted_time",
                             [](const PictureScore& score) { return seconds(score.distortedTime); })
      .def_readonly("score", &PictureScore::score);

  py::class_<WorstSpan>(module, "WorstSpan", "Pictures in a row that score low.")
      .def_property_readonly("start", [](const WorstSpan& span) { return seconds(span.start); })
      .def_property_readonly("end", [](const WorstSpan& span) { return seconds(span.end); })
      .def_readonly("mean", &WorstSpan::mean)
      .def_readonly("least", &WorstSpan::least);

  py::class_<Comparison>(module, "Comparison", "What a comparison came to.")
      .def_readonly("report", &Comparison::report)
      .def_property_readonly(
          "notes", [](const Comparison& compared) { return textsOf(compared.notes); },
          "What had to be done to compare, sentences.")
      .def_readonly("offset", &Comparison::offset, "How much later the copy is, seconds.")
      .def_readonly("scores", &Comparison::scores)
      .def_readonly("worst", &Comparison::worst)
      .def_readonly("mean", &Comparison::mean)
      .def_readonly("harmonic_mean", &Comparison::harmonicMean)
      .def_readonly("percentile5", &Comparison::percentile5)
      .def_readonly("least", &Comparison::least)
      .def_readonly("unpaired_originals", &Comparison::unpairedOriginals)
      .def_readonly("unpaired_distorted", &Comparison::unpairedDistorted);
}

}  // namespace kestrel::python
