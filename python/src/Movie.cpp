#include <kestrel/LMMediaSource.h>
#include <kestrel/convert/ConversionOptions.h>
#include <kestrel/convert/Failure.h>
#include <kestrel/convert/MediaInfo.h>
#include <kestrel/convert/Pictures.h>
#include <kestrel/convert/Sound.h>
#include <kestrel/convert/Values.h>

#include <pybind11/stl.h>

#include <algorithm>
#include <limits>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "Buffers.h"
#include "Hosting.h"
#include "PictureObject.h"
#include "Times.h"

namespace kestrel::python {

namespace {

using Sides = std::optional<std::pair<int, int>>;

/// How sound is to come.
struct SoundForm {
  std::optional<int> sampleRate;
  std::optional<int64_t> layout;
  TrackChoice tracks;

  bool operator==(const SoundForm&) const = default;
};

SoundForm soundForm(std::optional<int> sampleRate, const py::object& channels,
                    const std::string& tracks) {
  SoundForm form{sampleRate, std::nullopt, parseTrackChoice(tracks)};
  if (py::isinstance<py::int_>(channels))
    form.layout = lm_get_default_channel_layout(py::cast<int>(channels));
  else if (!channels.is_none())
    form.layout = parseChannels("channels", py::cast<std::string>(channels));
  return form;
}

/// Sound as numbers: frames by channels.
struct Samples {
  Plane plane;
  int sampleRate = 0;
};

Samples samplesOf(std::shared_ptr<std::vector<float>> values, const Sound& sound) {
  const ptrdiff_t channels = sound.channels();
  const ptrdiff_t frames = static_cast<ptrdiff_t>(values->size()) / channels;
  constexpr ptrdiff_t kSize = sizeof(float);
  const void* const data = values->data();
  return {{.owner = std::move(values),
           .data = data,
           .format = "f",
           .size = kSize,
           .shape = {frames, channels},
           .strides = {channels * kSize, kSize}},
          sound.sampleRate()};
}

/// Up to so many frames of what comes next.
std::shared_ptr<std::vector<float>> readFrames(Sound& sound, int64_t frames) {
  constexpr int64_t kBlock = 65536;
  const int64_t channels = sound.channels();
  auto values = std::make_shared<std::vector<float>>();
  for (int64_t done = 0; done < frames;) {
    const int64_t wanted = std::min(kBlock, frames - done);
    values->resize(static_cast<size_t>((done + wanted) * channels));
    const int64_t got = sound.read(values->data() + done * channels, wanted);
    done += got;
    values->resize(static_cast<size_t>(done * channels));
    if (got < wanted) break;
  }
  return values;
}

int64_t framesBetween(double start, const std::optional<double>& end, int rate) {
  if (!end) return std::numeric_limits<int64_t>::max() / 64;
  return std::max<int64_t>(std::llround(*end * rate) - std::llround(start * rate), 0);
}

/// A movie's pictures one after the other, from a reader of their own.
class PictureIterator {
 public:
  PictureIterator(std::shared_ptr<PictureReading> reading, double start, std::optional<double> end,
                  std::optional<double> step)
      : reading_(std::move(reading)),
        time_(microseconds(start)),
        end_(end ? microseconds(*end) : std::numeric_limits<int64_t>::max()) {
    if (step && !(*step > 0)) throw py::value_error("step: it has to be above 0");
    if (step) step_ = *step;
    start_ = start;
  }

  std::optional<PictureObject> next() {
    if (isOver_) return std::nullopt;
    auto picture = step_ ? atStep() : following();
    isOver_ = !picture;
    return picture;
  }

 private:
  std::optional<PictureObject> following() {
    const bool isFirst = count_++ == 0;
    auto shown = isFirst ? std::optional(reading_->shownAt(time_)) : reading_->next();
    if (!shown || shown->start >= end_ || (isFirst && time_ >= shown->end)) return std::nullopt;
    return reading_->object(*shown);
  }

  std::optional<PictureObject> atStep() {
    const int64_t time = microseconds(start_ + static_cast<double>(count_++) * *step_);
    if (time >= end_) return std::nullopt;
    const auto shown = reading_->shownAt(time);
    if (time >= shown.end) return std::nullopt;
    return reading_->object(shown);
  }

  std::shared_ptr<PictureReading> reading_;
  int64_t time_;
  int64_t end_;
  double start_ = 0;
  std::optional<double> step_;
  int64_t count_ = 0;
  bool isOver_ = false;
};

/// A movie's sound in blocks.
class SoundIterator {
 public:
  SoundIterator(const SoundSettings& settings, double length, double start,
                const std::optional<double>& end)
      : sound_(settings, signals()) {
    if (!(length > 0)) throw py::value_error("length: it has to be above 0");
    sound_.seek(microseconds(start));
    block_ = std::max<int64_t>(std::llround(length * sound_.sampleRate()), 1);
    left_ = framesBetween(start, end, sound_.sampleRate());
  }

  std::optional<Samples> next() {
    auto values = readFrames(sound_, std::min(block_, left_));
    if (values->empty()) return std::nullopt;
    left_ -= static_cast<int64_t>(values->size()) / sound_.channels();
    return samplesOf(std::move(values), sound_);
  }

 private:
  Sound sound_;
  int64_t block_ = 0;
  int64_t left_ = 0;
};

/// An opened movie. Its reader of pictures and that of sound are opened when first asked for.
class Movie {
 public:
  Movie(const py::object& input, std::optional<int> title, int angle, Protocols protocols,
        bool deinterlace, const py::kwargs& look)
      : title_(title),
        angle_(angle),
        protocols_(std::move(protocols)),
        deinterlacing_(deinterlace ? Deinterlacing::kCombed : Deinterlacing::kOff) {
    const InputSource source = inputOf(input);
    name_ = source.name;
    source_ = source.source;
    ConversionOptions options;
    for (const NamedValue& named : namedValues(look))
      for (const std::string& value : named.values) options.push_back({named.name, value});
    applyOptions(options, look_);
    const py::gil_scoped_release released;
    info_ = readInfo();
  }

  const MediaInfo& info() const { return info_; }

  std::optional<double> duration() {
    if (info_.duration) return seconds(*info_.duration);
    if (!info_.mainVideo) return std::nullopt;
    const py::gil_scoped_release released;
    return seconds(reading()->duration());
  }

  std::pair<int, int> size() {
    const py::gil_scoped_release released;
    const Size size = reading()->size();
    return {static_cast<int>(size.width), static_cast<int>(size.height)};
  }

  PictureObject picture(double time, const Sides& size) {
    const py::gil_scoped_release released;
    const auto reading = this->reading();
    reading->setSize(size);
    return reading->object(reading->shownAt(microseconds(time)));
  }

  PictureIterator pictures(double start, std::optional<double> end, std::optional<double> step,
                           const Sides& size) {
    const py::gil_scoped_release released;
    auto reading = openReading();
    reading->setSize(size);
    return {std::move(reading), start, end, step};
  }

  Samples sound(double start, std::optional<double> end, std::optional<int> sampleRate,
                const py::object& channels, const std::string& tracks) {
    const SoundForm form = soundForm(sampleRate, channels, tracks);
    const py::gil_scoped_release released;
    const std::lock_guard guard(turn_);
    requireOpen();
    if (!sound_ || soundForm_ != form) {
      sound_.emplace(soundSettings(form), signals());
      soundForm_ = form;
    }
    sound_->seek(microseconds(start));
    return samplesOf(readFrames(*sound_, framesBetween(start, end, sound_->sampleRate())), *sound_);
  }

  std::unique_ptr<SoundIterator> soundBlocks(double length, double start, std::optional<double> end,
                                             std::optional<int> sampleRate,
                                             const py::object& channels,
                                             const std::string& tracks) {
    const SoundForm form = soundForm(sampleRate, channels, tracks);
    const py::gil_scoped_release released;
    {
      const std::lock_guard guard(turn_);
      requireOpen();
    }
    return std::make_unique<SoundIterator>(soundSettings(form), length, start, end);
  }

  void close() {
    const py::gil_scoped_release released;
    const std::lock_guard guard(turn_);
    isClosed_ = true;
    for (const auto& reading : readings_)
      if (const auto held = reading.lock()) held->close();
    readings_.clear();
    reading_.reset();
    sound_.reset();
    source_.reset();
  }

  const std::string& name() const { return name_; }

 private:
  MediaInfo readInfo() const {
    if (!source_) return readMediaInfo(name_, title_, signals(), angle_, protocols_);
    const auto copy = source_->copy();
    copy->setInterrupt(signals());
    copy->open();
    if (!copy->isOpen()) {
      // The same sentence as of a file.
      Sound({.input = name_, .source = source_}, signals());
      throw Failure::input(name_, "cannot open '" + name_ + "'");
    }
    return mediaInfoOf(*copy);
  }

  void requireOpen() const {
    if (isClosed_) throw py::value_error("the movie is closed");
  }

  std::shared_ptr<PictureReading> openReading() {
    const std::lock_guard guard(turn_);
    return openReadingHere();
  }

  std::shared_ptr<PictureReading> reading() {
    const std::lock_guard guard(turn_);
    if (!reading_) reading_ = openReadingHere();
    return reading_;
  }

  std::shared_ptr<PictureReading> openReadingHere() {
    requireOpen();
    auto reading =
        std::make_shared<PictureReading>(PicturesSettings{.input = name_,
                                                          .source = source_,
                                                          .title = title_,
                                                          .angle = angle_,
                                                          .protocols = protocols_,
                                                          .look = look_,
                                                          .deinterlacing = deinterlacing_});
    std::erase_if(readings_, [](const auto& held) { return held.expired(); });
    readings_.push_back(reading);
    return reading;
  }

  SoundSettings soundSettings(const SoundForm& form) const {
    return {.input = name_,
            .source = source_,
            .title = title_,
            .angle = angle_,
            .protocols = protocols_,
            .audioTracks = form.tracks,
            .sampleRate = form.sampleRate,
            .channelLayout = form.layout};
  }

  std::string name_;
  std::shared_ptr<LMMediaSource> source_;
  std::optional<int> title_;
  int angle_;
  Protocols protocols_;
  Deinterlacing deinterlacing_;
  LookSettings look_;
  MediaInfo info_;

  std::mutex turn_;  // for what follows
  bool isClosed_ = false;
  std::shared_ptr<PictureReading> reading_;
  std::vector<std::weak_ptr<PictureReading>> readings_;
  std::optional<Sound> sound_;
  SoundForm soundForm_;
};

std::string describe(const Movie& movie) {
  std::string text = "<kestrel.Movie '" + movie.name() + "'";
  for (const StreamInfo& stream : movie.info().streams) {
    text += ", " + stream.codec;
    if (stream.kind == StreamInfo::Kind::kVideo)
      text += " " + std::to_string(stream.video.width) + "x" + std::to_string(stream.video.height);
  }
  return text + ">";
}

template <typename Iterator>
auto nextOf(Iterator& iterator) {
  auto next = [&] {
    const py::gil_scoped_release released;
    return iterator.next();
  }();
  if (!next) throw py::stop_iteration();
  return std::move(*next);
}

}  // namespace

void bindMovie(py::module_& module) {
  bindPicture(module);

  py::class_<Samples>(module, "Samples", py::buffer_protocol(),
                      "Sound as 32-bit floats, frames by channels; full scale is 1.")
      .def_buffer([](const Samples& samples) { return samples.plane.buffer(); })
      .def_readonly("sample_rate", &Samples::sampleRate, "Hz.")
      .def_property_readonly("shape",
                             [](const Samples& samples) { return samples.plane.shapeTuple(); })
      .def_property_readonly("channels",
                             [](const Samples& samples) { return samples.plane.shape[1]; })
      .def("__len__", [](const Samples& samples) { return samples.plane.shape[0]; })
      .def("__repr__", [](const Samples& samples) {
        return "<kestrel.Samples: " + std::to_string(samples.plane.shape[0]) + " frames of " +
               std::to_string(samples.plane.shape[1]) + " channels at " +
               std::to_string(samples.sampleRate) + " Hz>";
      });

  py::class_<PictureIterator>(module, "PictureIterator", "A movie's pictures in order.")
      .def("__iter__", [](PictureIterator& pictures) -> PictureIterator& { return pictures; })
      .def("__next__", &nextOf<PictureIterator>);
  py::class_<SoundIterator>(module, "SoundIterator", "A movie's sound in blocks.")
      .def("__iter__", [](SoundIterator& blocks) -> SoundIterator& { return blocks; })
      .def("__next__", &nextOf<SoundIterator>);

  py::class_<Movie>(module, "Movie", R"(A movie or sound file, to look at and to listen to.

    with kestrel.Movie("clip.mp4") as movie:
        picture = numpy.asarray(movie.picture(12.5))

`input` is a path, `bytes`, or an object with `read` and `seek`. With `deinterlace`, pictures that
show combs lose them; without, they come as they were decoded. Options of the look are those of
`kestrel convert`, with underscores: crop, rotate, effect, subtitles and so on. Times are seconds
from the movie's start. Threads may share a movie; they take turns.)")
      .def(py::init<const py::object&, std::optional<int>, int, Protocols, bool,
                    const py::kwargs&>(),
           py::arg("input"), py::kw_only(), py::arg("title") = py::none(), py::arg("angle") = 1,
           py::arg("protocols") = Protocols{}, py::arg("deinterlace") = false)
      .def_property_readonly("info", &Movie::info, "What is in it.")
      .def_property_readonly("duration", &Movie::duration, "Seconds; None: not known.")
      .def_property_readonly("size", &Movie::size,
                             "Width and height of its pictures, upright and in square pixels.")
      .def("picture", &Movie::picture, py::arg("time"), py::kw_only(), py::arg("size") = py::none(),
           "The picture that a player shows at a time.")
      .def("pictures", &Movie::pictures, py::arg("start") = 0.0, py::arg("end") = py::none(),
           py::arg("step") = py::none(), py::kw_only(), py::arg("size") = py::none(),
           "Every picture from `start` until `end`, or the one shown each `step` seconds.")
      .def("sound", &Movie::sound, py::arg("start") = 0.0, py::arg("end") = py::none(),
           py::kw_only(), py::arg("sample_rate") = py::none(), py::arg("channels") = py::none(),
           py::arg("tracks") = "",
           "The sound from `start` until `end`; by default of the usual track, as it is.")
      .def("sound_blocks", &Movie::soundBlocks, py::arg("length") = 1.0, py::arg("start") = 0.0,
           py::arg("end") = py::none(), py::kw_only(), py::arg("sample_rate") = py::none(),
           py::arg("channels") = py::none(), py::arg("tracks") = "",
           "The same in blocks of `length` seconds.")
      .def("close", &Movie::close, "Closes its files; what it gave out stays.")
      .def("__enter__", [](Movie& movie) -> Movie& { return movie; })
      .def("__exit__", [](Movie& movie, const py::args&) { movie.close(); })
      .def("__repr__", &describe);
}

}  // namespace kestrel::python
