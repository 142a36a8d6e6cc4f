#include <kestrel/convert/MediaInfo.h>

#include <pybind11/stl.h>

#include "Bindings.h"
#include "Hosting.h"
#include "Times.h"

namespace kestrel::python {

namespace {

using Rate = std::optional<Rational>;

py::object fraction(const Rate& rate) {
  if (!rate || rate->den == 0) return py::none();
  return py::module_::import("fractions").attr("Fraction")(rate->num, rate->den);
}

py::dict dictOf(const Tags& tags) {
  py::dict result;
  for (const auto& [name, value] : tags) result[textOf(name)] = textOf(value);
  return result;
}

std::string sizeOf(const VideoInfo& video) {
  return std::to_string(video.width) + "x" + std::to_string(video.height);
}

std::string describe(const StreamInfo& stream) {
  std::string text = "<kestrel.Stream " + std::to_string(stream.index) + ": " + stream.type;
  if (!stream.codec.empty()) text += ", " + stream.codec;
  if (stream.kind == StreamInfo::Kind::kVideo) text += ", " + sizeOf(stream.video);
  if (stream.kind == StreamInfo::Kind::kAudio)
    text += ", " + std::to_string(stream.audio.sampleRate) + " Hz, " + stream.audio.layout;
  return text + ">";
}

/// A member of the part of a stream that is about its pictures, or about its sound.
template <typename Part, typename Value>
auto part(Part StreamInfo::*owner, Value Part::*member) {
  return [owner, member](const StreamInfo& stream) { return stream.*owner.*member; };
}

}  // namespace

void bindInfo(py::module_& module) {
  py::class_<ChapterInfo>(module, "Chapter", "A chapter; times are seconds in the container's own.")
      .def_property_readonly("start",
                             [](const ChapterInfo& chapter) { return seconds(chapter.start); })
      .def_property_readonly("end", [](const ChapterInfo& chapter) { return seconds(chapter.end); })
      .def_property_readonly("tags",
                             [](const ChapterInfo& chapter) { return dictOf(chapter.tags); });

  using Video = VideoInfo;
  using Audio = AudioInfo;
  py::class_<StreamInfo>(module, "Stream", "What a container tells of a stream.")
      .def_readonly("index", &StreamInfo::index)
      .def_readonly("type", &StreamInfo::type,
                    "'video', 'audio', 'subtitle', 'attachment' or 'data'.")
      .def_readonly("codec", &StreamInfo::codec)
      .def_readonly("profile", &StreamInfo::profile)
      .def_readonly("language", &StreamInfo::language)
      .def_readonly("bit_rate", &StreamInfo::bitRate, "Bits per second.")
      .def_property_readonly("start",
                             [](const StreamInfo& stream) { return seconds(stream.startTime); })
      .def_property_readonly("duration",
                             [](const StreamInfo& stream) { return seconds(stream.duration); })
      .def_readonly("disposition", &StreamInfo::disposition)
      .def_property_readonly("tags", [](const StreamInfo& stream) { return dictOf(stream.tags); })
      .def_property_readonly("width", part(&StreamInfo::video, &Video::width),
                             "Pixels as they are stored, before the turn.")
      .def_property_readonly("height", part(&StreamInfo::video, &Video::height))
      .def_property_readonly("pixel_format", part(&StreamInfo::video, &Video::pixelFormat))
      .def_property_readonly("bit_depth", part(&StreamInfo::video, &Video::bitDepth))
      .def_property_readonly("has_alpha", part(&StreamInfo::video, &Video::hasAlpha))
      .def_property_readonly("is_cover", part(&StreamInfo::video, &Video::isCover))
      .def_property_readonly(
          "frame_rate", [](const StreamInfo& stream) { return fraction(stream.video.frameRate); },
          "Pictures per second as they really come, a Fraction.")
      .def_property_readonly(
          "display_aspect",
          [](const StreamInfo& stream) { return fraction(stream.video.displayAspect); })
      .def_property_readonly(
          "rotation",
          [](const StreamInfo& stream) { return -stream.video.orientation.counterclockwise; },
          "Degrees clockwise by which players turn the pictures.")
      .def_property_readonly("color_space", part(&StreamInfo::video, &Video::colorSpace))
      .def_property_readonly("color_range", part(&StreamInfo::video, &Video::colorRange))
      .def_property_readonly("color_primaries", part(&StreamInfo::video, &Video::colorPrimaries))
      .def_property_readonly("color_transfer", part(&StreamInfo::video, &Video::colorTransfer))
      .def_property_readonly("sample_format", part(&StreamInfo::audio, &Audio::sampleFormat))
      .def_property_readonly("sample_rate", part(&StreamInfo::audio, &Audio::sampleRate), "Hz.")
      .def_property_readonly("channels", part(&StreamInfo::audio, &Audio::channels))
      .def_property_readonly("channel_layout", part(&StreamInfo::audio, &Audio::layout))
      .def("__repr__", &describe);

  py::class_<MediaInfo>(module, "Info", "What is in a movie or sound file.")
      .def_readonly("format", &MediaInfo::format)
      .def_readonly("format_long_name", &MediaInfo::formatLongName)
      .def_readonly("size", &MediaInfo::size, "Bytes.")
      .def_property_readonly(
          "duration", [](const MediaInfo& info) { return seconds(info.duration); }, "Seconds.")
      .def_property_readonly(
          "start", [](const MediaInfo& info) { return seconds(info.startTime); },
          "When it begins, seconds in the container's time.")
      .def_readonly("bit_rate", &MediaInfo::bitRate, "Bits per second.")
      .def_property_readonly("tags", [](const MediaInfo& info) { return dictOf(info.tags); })
      .def_readonly("chapters", &MediaInfo::chapters)
      .def_readonly("streams", &MediaInfo::streams)
      .def_property_readonly(
          "video",
          [](const MediaInfo& info) {
            return info.mainVideo ? std::optional(info.streams[*info.mainVideo]) : std::nullopt;
          },
          "The stream of pictures that a viewer sees; None: there is none.")
      .def_property_readonly(
          "audio",
          [](const MediaInfo& info) {
            std::vector<StreamInfo> tracks;
            for (const auto& track : info.audioTracks)
              if (track) tracks.push_back(info.streams[*track]);
            return tracks;
          },
          "The sound tracks in the order in which users count them.")
      .def("__repr__", [](const MediaInfo& info) {
        return "<kestrel.Info: " + info.format + ", " + std::to_string(info.streams.size()) +
               " streams>";
      });
}

}  // namespace kestrel::python
