#include <kestrel/LMMediaSource.h>
#include <kestrel/convert/ConversionOptions.h>
#include <kestrel/convert/Failure.h>
#include <kestrel/convert/MediaInfo.h>
#include <kestrel/convert/Pictures.h>
#include <kestrel/convert/Sound.h>
#include <kestrel/convert/Values.h>

#include <pybind11/stl.h>

#include <algorithm>
#include <functional>
#include <limits>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "Buffers.h"
#include "Hosting.h"
#include "PictureObject.h"
#include "Times.h"

extern "C" {
#include <libavutil/mathematics.h>
}

namespace kestrel::python {

namespace {

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
  start = std::max(start, 0.0);
  if (!end) return std::numeric_limits<int64_t>::max() / 64;
  return std::max<int64_t>(av_rescale(microseconds(*end), rate, 1000000) -
                               av_rescale(microseconds(start), rate, 1000000),
                           0);
}

/// A reader of sound that threads take turns with. Nothing here is to be called with Python's lock
/// held.
class SoundReading {
 public:
  SoundReading(const SoundSettings& settings, const Interrupt& interrupt) {
    sound_.emplace(settings, interrupt);
  }

  Samples between(double start, const std::optional<double>& end) {
    const std::lock_guard guard(turn_);
    Sound& sound = opened();
    sound.seek(microseconds(start));
    return samplesOf(readFrames(sound, framesBetween(start, end, sound.sampleRate())), sound);
  }

  void seek(double start) {
    const std::lock_guard guard(turn_);
    opened().seek(microseconds(start));
  }

  int sampleRate() {
    const std::lock_guard guard(turn_);
    return opened().sampleRate();
  }

  /// What comes next, up to so many frames.
  Samples next(int64_t frames) {
    const std::lock_guard guard(turn_);
    return samplesOf(readFrames(opened(), frames), opened());
  }

  void close() {
    const std::lock_guard guard(turn_);
    sound_.reset();
  }

 private:
  Sound& opened() {
    if (!sound_) throw py::value_error("the movie is closed");
    return *sound_;
  }

  std::mutex turn_;
  std::optional<Sound> sound_;
};

/// What is given out one after the other, to one thread at a time.
template <typename Item>
class Sequence {
 public:
  using Next = std::function<std::optional<Item>()>;

  Sequence(Attendant attendant, std::function<void()> check, Next next)
      : attendant_(std::move(attendant)), check_(std::move(check)), next_(std::move(next)) {}

  Item next() {
    auto item = attendant_([this] {
      const std::lock_guard guard(turn_);
      return next_();
    });
    check_();
    if (!item) throw py::stop_iteration();
    return std::move(*item);
  }

 private:
  const Attendant attendant_;
  const std::function<void()> check_;
  std::mutex turn_;
  const Next next_;
};

using PictureSequence = Sequence<PictureObject>;
using SampleSequence = Sequence<Samples>;

/// Each picture that begins before `end`, from the one shown at `start`.
PictureSequence::Next everyPicture(std::shared_ptr<PictureReading> reading, int64_t start,
                                   int64_t end, const Sides& size) {
  return [reading = std::move(reading), start, end, size,
          isBegun = false]() mutable -> std::optional<PictureObject> {
    const bool isFirst = !std::exchange(isBegun, true);
    auto picture = isFirst ? std::optional(reading->at(start, size)) : reading->next(size);
    const bool isOver =
        picture && (picture->shown().start >= end || (isFirst && start >= picture->shown().end));
    if (isOver) end = 0;
    return isOver ? std::nullopt : picture;
  };
}

/// The picture shown at `start` and each `step` seconds later.
PictureSequence::Next steppedPictures(std::shared_ptr<PictureReading> reading, double start,
                                      int64_t end, double step, const Sides& size) {
  return [reading = std::move(reading), start, end, step, size,
          count = int64_t{0}]() mutable -> std::optional<PictureObject> {
    const int64_t time = microseconds(start + static_cast<double>(count++) * step);
    if (time >= end) return std::nullopt;
    auto picture = reading->at(time, size);
    return time < picture.shown().end ? std::optional(std::move(picture)) : std::nullopt;
  };
}

/// An opened movie. Its reader of pictures and that of sound are opened when first asked for.
class Movie {
 public:
  Movie(const py::object& input, std::optional<int> title, int angle, Protocols protocols,
        bool deinterlace, const py::kwargs& look)
      : title_(title),
        angle_(angle),
        protocols_(std::move(protocols)),
        deinterlacing_(deinterlace ? Deinterlacing::kCombed : Deinterlacing::kOff) {
    input_ = inputOf(input);
    ConversionOptions options;
    for (const NamedValue& named : namedValues(look))
      for (const std::string& value : named.values) options.push_back({named.name, value});
    applyOptions(options, look_);
    info_ = asked([this] { return readInfo(); });
  }

  const MediaInfo& info() const { return info_; }

  std::optional<double> duration() {
    if (info_.duration) return seconds(*info_.duration);
    if (!info_.mainVideo) return std::nullopt;
    return seconds(asked([this] { return pictureReading()->duration(); }));
  }

  std::pair<int, int> size() {
    const Size size = asked([this] { return pictureReading()->size(); });
    return {static_cast<int>(size.width), static_cast<int>(size.height)};
  }

  PictureObject picture(double time, const Sides& size) {
    return asked([&] { return pictureReading()->at(microseconds(time), size); });
  }

  std::unique_ptr<PictureSequence> pictures(double start, std::optional<double> end,
                                            std::optional<double> step, const Sides& size) {
    if (step && !(*step > 0)) throw py::value_error("step: it has to be above 0");
    const int64_t first = microseconds(start);
    const int64_t last = end ? microseconds(*end) : std::numeric_limits<int64_t>::max();
    const Attendant attendant;
    auto reading = asked([&] { return openPictures(attendant.interrupt()); });
    return std::make_unique<PictureSequence>(
        attendant, input_.check,
        step ? steppedPictures(std::move(reading), start, last, *step, size)
             : everyPicture(std::move(reading), first, last, size));
  }

  Samples sound(double start, std::optional<double> end, std::optional<int> sampleRate,
                const py::object& channels, const std::string& tracks) {
    const SoundForm form = soundForm(sampleRate, channels, tracks);
    return asked([&] { return soundReading(form)->between(start, end); });
  }

  std::unique_ptr<SampleSequence> soundBlocks(double length, double start,
                                              std::optional<double> end,
                                              std::optional<int> sampleRate,
                                              const py::object& channels,
                                              const std::string& tracks) {
    if (!(length > 0)) throw py::value_error("length: it has to be above 0");
    const SoundForm form = soundForm(sampleRate, channels, tracks);
    const Attendant attendant;
    auto reading = asked([&] {
      auto opened = openSound(form, attendant.interrupt());
      opened->seek(start);
      return opened;
    });
    const int rate = asked([&] { return reading->sampleRate(); });
    const int64_t block = std::max<int64_t>(av_rescale(microseconds(length), rate, 1000000), 1);
    return std::make_unique<SampleSequence>(
        attendant, input_.check,
        [reading, block,
         left = framesBetween(start, end, rate)]() mutable -> std::optional<Samples> {
          auto samples = reading->next(std::min(block, left));
          left -= samples.plane.shape[0];
          return samples.plane.shape[0] > 0 ? std::optional(std::move(samples)) : std::nullopt;
        });
  }

  void close() {
    const py::gil_scoped_release released;
    const std::lock_guard guard(turn_);
    isClosed_ = true;
    for (const auto& close : closers_) close();
    closers_.clear();
    pictures_.reset();
    sound_.reset();
    input_.source.reset();
  }

  const std::string& name() const { return input_.name; }

 private:
  /// What work answers that is done without Python's lock. What a file of Python has raised counts
  /// for more than what came of that.
  template <typename Work>
  std::invoke_result_t<Work> asked(Work work) {
    try {
      auto answer = attendant_(work);
      input_.check();
      return answer;
    } catch (const Failure&) {
      input_.check();
      throw;
    }
  }

  MediaInfo readInfo() const {
    if (!input_.source)
      return readMediaInfo(input_.name, title_, attendant_.interrupt(), angle_, protocols_);
    const auto copy = input_.source->copy();
    copy->setInterrupt(attendant_.interrupt());
    copy->open();
    if (!copy->isOpen())
      throw Failure::input(input_.name,
                           "cannot open '" + input_.name + "': " + copy->lastError().message);
    return mediaInfoOf(*copy);
  }

  void requireOpen() const {
    if (isClosed_) throw py::value_error("the movie is closed");
  }

  std::shared_ptr<PictureReading> pictureReading() {
    const std::lock_guard guard(turn_);
    requireOpen();
    if (!pictures_) pictures_ = openPicturesHere(attendant_.interrupt());
    return pictures_;
  }

  std::shared_ptr<PictureReading> openPictures(const Interrupt& interrupt) {
    const std::lock_guard guard(turn_);
    requireOpen();
    return openPicturesHere(interrupt);
  }

  std::shared_ptr<PictureReading> openPicturesHere(const Interrupt& interrupt) {
    return kept(std::make_shared<PictureReading>(PicturesSettings{.input = input_.name,
                                                                  .source = input_.source,
                                                                  .title = title_,
                                                                  .angle = angle_,
                                                                  .protocols = protocols_,
                                                                  .look = look_,
                                                                  .deinterlacing = deinterlacing_},
                                                 interrupt));
  }

  std::shared_ptr<SoundReading> soundReading(const SoundForm& form) {
    const std::lock_guard guard(turn_);
    requireOpen();
    if (!sound_ || !(soundForm_ == form)) sound_ = openSoundHere(form, attendant_.interrupt());
    soundForm_ = form;
    return sound_;
  }

  std::shared_ptr<SoundReading> openSound(const SoundForm& form, const Interrupt& interrupt) {
    const std::lock_guard guard(turn_);
    requireOpen();
    return openSoundHere(form, interrupt);
  }

  std::shared_ptr<SoundReading> openSoundHere(const SoundForm& form, const Interrupt& interrupt) {
    return kept(std::make_shared<SoundReading>(SoundSettings{.input = input_.name,
                                                             .source = input_.source,
                                                             .title = title_,
                                                             .angle = angle_,
                                                             .protocols = protocols_,
                                                             .audioTracks = form.tracks,
                                                             .sampleRate = form.sampleRate,
                                                             .channelLayout = form.layout},
                                               interrupt));
  }

  /// Notes that closing the movie closes a reader, if that is still there.
  template <typename Reading>
  std::shared_ptr<Reading> kept(std::shared_ptr<Reading> reading) {
    closers_.push_back([held = std::weak_ptr<Reading>(reading)] {
      if (const auto open = held.lock()) open->close();
    });
    return reading;
  }

  InputSource input_;
  std::optional<int> title_;
  int angle_;
  Protocols protocols_;
  Deinterlacing deinterlacing_;
  LookSettings look_;
  MediaInfo info_;
  const Attendant attendant_;

  std::mutex turn_;  // for what follows
  bool isClosed_ = false;
  std::vector<std::function<void()>> closers_;
  std::shared_ptr<PictureReading> pictures_;
  std::shared_ptr<SoundReading> sound_;
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

  py::class_<PictureSequence>(module, "PictureIterator", "A movie's pictures in order.")
      .def("__iter__", [](PictureSequence& pictures) -> PictureSequence& { return pictures; })
      .def("__next__", &PictureSequence::next);
  py::class_<SampleSequence>(module, "SoundIterator", "A movie's sound in blocks.")
      .def("__iter__", [](SampleSequence& blocks) -> SampleSequence& { return blocks; })
      .def("__next__", &SampleSequence::next);

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
      .def("close", &Movie::close,
           "Closes its files; what was looked at stays, and decoded samples do.")
      .def("__enter__", [](Movie& movie) -> Movie& { return movie; })
      .def("__exit__", [](Movie& movie, const py::args&) { movie.close(); })
      .def("__repr__", &describe);
}

}  // namespace kestrel::python
