#include <gmock/gmock.h>
#include <kestrel/convert/Conversion.h>
#include <kestrel/convert/Failure.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/codec/Codec.h"
#include "support/FFmpegCompat.h"
#include "support/FFmpegOwners.h"
#include "tests/corpus/Clips.h"
#include "tests/support/Ffprobe.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

namespace fs = std::filesystem;

constexpr double kRounding = 0.002;  // seconds: containers that count milliseconds

/// So much of each clip is converted, seconds; all of it where the environment asks for that.
std::optional<double> spanOf(double duration) {
  constexpr double kSpan = 1;
  if (std::getenv("KESTREL_WHOLE_CORPUS")) return std::nullopt;
  return duration == 0 || duration > 1.5 * kSpan ? std::optional(kSpan) : std::nullopt;
}

/// A picture, or a piece of sound.
struct Piece {
  double time = 0;     // seconds
  double seconds = 0;  // of sound
};

/// A stream of a file.
struct Stream {
  std::string type;  // "video", "audio", "subtitle" …, "cover"
  std::string codec;
  double frame = 0;           // of sound: the longest piece, seconds
  std::vector<Piece> pieces;  // in the order of their times

  double begin() const { return pieces.front().time; }
  double end() const { return pieces.back().time + pieces.back().seconds; }
  double heard() const {
    double sum = 0;
    for (const Piece& piece : pieces) sum += piece.seconds;
    return sum;
  }
};

struct File {
  std::vector<Stream> streams;

  std::vector<const Stream*> of(const std::string& type) const {
    std::vector<const Stream*> found;
    for (const Stream& stream : streams)
      if (stream.type == type) found.push_back(&stream);
    return found;
  }

  /// "0:video:h264 1:audio:aac"
  std::string listed() const {
    std::string text;
    for (size_t i = 0; i < streams.size(); ++i)
      text += " " + std::to_string(i) + ":" + streams[i].type + ":" + streams[i].codec;
    return text;
  }
};

void add(Stream& stream, const Piece& piece) {
  stream.pieces.push_back(piece);
  stream.frame = std::max(stream.frame, piece.seconds);
}

void sort(File& file) {
  for (Stream& stream : file.streams) std::ranges::sort(stream.pieces, {}, &Piece::time);
}

double secondsIn(const nlohmann::json& object, const char* name) {
  return object.contains(name) ? std::stod(object[name].get<std::string>()) : 0;
}

/// What a clip shows and sounds like, as ffprobe decodes it: times from its start.
File decodedByFfprobe(const fs::path& clip, const nlohmann::json& facts,
                      const std::optional<double>& span) {
  File file;
  for (const auto& stream : facts["streams"]) {
    const bool isCover = stream["disposition"]["attached_pic"] == 1;
    file.streams.push_back({isCover ? "cover" : stream.value("codec_type", "data"),
                            stream.value("codec_name", "none"),
                            0,
                            {}});
  }
  std::vector<std::string> arguments{"-show_entries",
                                     "frame=stream_index,best_effort_timestamp_time,nb_samples"};
  if (span)
    arguments.insert(arguments.end(), {"-read_intervals", "%+" + std::to_string(*span + 1)});
  const double start = secondsIn(facts["format"], "start_time");
  const auto frames = ffprobeJson(clip, arguments)["frames"];
  for (const auto& frame : frames) {
    if (!frame.contains("stream_index")) continue;
    const auto index = frame["stream_index"].get<size_t>();
    // Pictures that nobody dates come behind those that are.
    std::vector<Piece>& pieces = file.streams[index].pieces;
    const double before = pieces.empty() ? start : pieces.back().time + start;
    const bool isDated = frame.contains("best_effort_timestamp_time");
    const double time = isDated ? secondsIn(frame, "best_effort_timestamp_time") : before;
    const std::string rate = facts["streams"][index].value("sample_rate", "0");
    const double samples = frame.value("nb_samples", 0);
    add(file.streams[index], {time - start, rate == "0" ? 0 : samples / std::stod(rate)});
  }
  sort(file);
  return file;
}

/// The same of a result, in its container's own times.
File decoded(const fs::path& path) {
  File file;
  AVFormatContext* input = nullptr;
  if (avformat_open_input(&input, path.c_str(), nullptr, nullptr) < 0) return file;
  avformat_find_stream_info(input, nullptr);
  std::vector<CodecContextPtr> decoders;
  for (unsigned i = 0; i < input->nb_streams; ++i) {
    const AVStream& stream = *input->streams[i];
    const AVCodecParameters& codec = *stream.codecpar;
    const char* type = av_get_media_type_string(codec.codec_type);
    const bool isCover = (stream.disposition & AV_DISPOSITION_ATTACHED_PIC) != 0;
    file.streams.push_back({isCover ? "cover"
                            : type  ? type
                                    : "data",
                            avcodec_get_name(codec.codec_id),
                            0,
                            {}});
    CodecContextPtr decoder;
    const bool isRead = !isCover && (codec.codec_type == AVMEDIA_TYPE_VIDEO ||
                                     codec.codec_type == AVMEDIA_TYPE_AUDIO);
    if (isRead && openDecoder(decoder, codec, {.timebase = stream.time_base}) < 0) decoder.reset();
    decoders.push_back(std::move(decoder));
  }
  const auto read = [&](unsigned index, const AVPacket* packet) {
    if (index >= decoders.size() || !decoders[index]) return;
    const AVStream& stream = *input->streams[index];
    decodePacket(*decoders[index], packet, [&](const FramePtr& frame) {
      const bool isSound = stream.codecpar->codec_type == AVMEDIA_TYPE_AUDIO;
      add(file.streams[index],
          {static_cast<double>(frame->best_effort_timestamp) * av_q2d(stream.time_base),
           isSound ? static_cast<double>(frame->nb_samples) / frame->sample_rate : 0});
    });
  };
  for (const PacketPtr packet = makePacket(); av_read_frame(input, packet.get()) >= 0;
       av_packet_unref(packet.get()))
    read(static_cast<unsigned>(packet->stream_index), packet.get());
  for (unsigned i = 0; i < decoders.size(); ++i) read(i, nullptr);
  avformat_close_input(&input);
  sort(file);
  return file;
}

/// The sound before the first sample that an encoder adds, where the container cannot hide it,
/// seconds at the rate of a stream of frames of so many samples.
double unhiddenDelay(const std::string& codec, const std::string& container, double frame) {
  if (container == "mp4" || container == "mov") return 0;
  static const std::map<std::string, double> kFrames{{"aac", 1.0}, {"mp3", 2.0}, {"mp2", 0.5}};
  const auto delay = kFrames.find(codec);
  return delay == kFrames.end() ? 0 : delay->second * frame;
}

/// Every clip, in every container that people use.
class StreamsCorpus : public testing::TestWithParam<std::string> {
 protected:
  void SetUp() override {
    if (GetParam().empty()) GTEST_SKIP() << "no clips in " << mediaFile("").string();
    clip_ = mediaFile(GetParam());
    facts_ = ffprobeJson(clip_);
    span_ = spanOf(secondsIn(facts_["format"], "duration"));
    source_ = decodedByFfprobe(clip_, facts_, span_);
  }

  bool isEmpty() const {
    return std::ranges::all_of(source_.streams, [](const Stream& stream) {
      return stream.pieces.empty() || stream.type == "cover";
    });
  }

  ConversionSettings settingsFor(const std::string& container) const {
    ConversionSettings settings{.input = clip_.string(),
                                .output = (folder_ / ("out." + container)).string()};
    if (!source_.of("video").empty()) {
      settings.width = 96;
      settings.deinterlacing = Deinterlacing::kOff;
      if (container == "webm")
        settings.videoOptions = {{"deadline", "realtime"}, {"cpu-used", "8"}};
      else if (container != "avi")
        settings.encoderPreset = "ultrafast";
    }
    if (span_) settings.end = std::llround(*span_ * 1e6);
    return settings;
  }

  /// Each stream of the clip is in the plan, and what is left out is named with its reason.
  void nothingIsLostUnnamed(const ConversionPlan& plan, const Report& report) const {
    std::set<uint32_t> planned;
    for (const PlannedStream& stream : plan.streams)
      for (const uint32_t index : stream.sources) {
        planned.insert(index);
        if (stream.isKept()) continue;
        const std::string name = "#" + std::to_string(index);
        EXPECT_THAT(report.leftOut, testing::Contains(testing::HasSubstr(name)));
      }
    for (uint32_t i = 0; i < source_.streams.size(); ++i) EXPECT_TRUE(planned.contains(i)) << i;
  }

  /// As many streams of each kind as are planned. Tracks without packets are in no index of MPEG-4.
  void streamsAreThose(const ConversionPlan& plan, const Report& report, const File& result) const {
    std::map<std::string, size_t> expected;
    static const std::map<StreamInfo::Kind, std::string> kNames{
        {StreamInfo::Kind::kVideo, "video"},
        {StreamInfo::Kind::kAudio, "audio"},
        {StreamInfo::Kind::kSubtitle, "subtitle"},
        {StreamInfo::Kind::kAttachment, "attachment"}};
    for (const PlannedStream& stream : plan.streams)
      if (stream.isKept()) ++expected[stream.isCover ? "cover" : kNames.at(stream.kind)];
    const auto missing =
        static_cast<size_t>(std::ranges::count_if(report.leftOut, [](const std::string& sentence) {
          return sentence.find("none were found") != std::string::npos;
        }));
    for (const auto& [type, count] : expected) {
      const size_t found = result.of(type).size();
      EXPECT_LE(found, count) << type;
      EXPECT_GE(found + (type == "subtitle" ? missing : 0), count) << type;
    }
  }

  /// When the first of the clip's pictures is shown; none without pictures in the span.
  std::vector<Piece> picturesInSpan() const {
    std::vector<Piece> inSpan;
    const auto videos = source_.of("video");
    if (videos.empty()) return inSpan;
    for (const Piece& picture : videos.front()->pieces)
      if (!span_ || picture.time < *span_ - kRounding) inSpan.push_back(picture);
    return inSpan;
  }

  /// How long a picture of the clip usually is shown, seconds.
  double usualTime() const {
    for (const auto& stream : facts_["streams"]) {
      if (stream.value("codec_type", "") != "video") continue;
      const std::string rate = stream["avg_frame_rate"];
      const double pictures = std::stod(rate);
      if (pictures > 0) return std::stod(rate.substr(rate.find('/') + 1)) / pictures;
    }
    return 0;
  }

  /// Each picture is there once. One that the span's end cuts to less than half its time is left
  /// out. A container of one rate repeats pictures, and has one of those that come closer together.
  void picturesAreAllThere(const std::string& container, const File& result) const {
    const auto expected = picturesInSpan();
    if (expected.empty()) return;
    const auto videos = result.of("video");
    ASSERT_EQ(videos.size(), 1U);
    const double usual = usualTime();
    size_t least = 0;
    double last = -1;
    for (const Piece& picture : expected) {
      const bool isCut = span_ && picture.time + usual / 2 > *span_ - kRounding && least > 0;
      const bool isClose = container == "avi" && picture.time - last < usual * 0.6;
      const bool isEarly = container == "avi" && picture.time < -kRounding;
      if (isCut || isClose || isEarly) continue;
      ++least;
      last = picture.time;
    }
    EXPECT_GE(videos.front()->pieces.size(), least);
    if (container == "avi") return;
    // Of some containers ffprobe dates all pictures one late.
    const size_t late = span_ && expected.front().time > kRounding ? 1 : 0;
    EXPECT_LE(videos.front()->pieces.size(), expected.size() + late);
  }

  /// How much later everything is in a result: AVI and Matroska move pictures behind what an
  /// encoder of sound adds before it, transport streams begin later.
  double shiftOf(const File& result) const {
    const auto expected = picturesInSpan();
    const auto videos = result.of("video");
    if (expected.empty() || videos.empty() || videos.front()->pieces.empty()) return 0;
    return videos.front()->begin();
  }

  /// Each track of sound is as long as it was, and ends where it did, within one of its frames.
  void soundsAreAsLong(const std::string& container, const File& result) const {
    const auto sounds = source_.of("audio");
    const auto made = result.of("audio");
    ASSERT_EQ(made.size(), sounds.size());
    for (size_t i = 0; i < sounds.size(); ++i) {
      SCOPED_TRACE("sound " + std::to_string(i));
      std::vector<Piece> inSpan;
      for (const Piece& piece : sounds[i]->pieces)
        if (!span_ || piece.time < *span_) inSpan.push_back(piece);
      if (inSpan.empty()) continue;
      ASSERT_FALSE(made[i]->pieces.empty());
      const double end = inSpan.back().time + inSpan.back().seconds;
      const double stop = span_ ? std::min(*span_, end) : end;
      const double frame = std::max(made[i]->frame, sounds[i]->frame);
      const double delay = unhiddenDelay(made[i]->codec, container, made[i]->frame);
      const double early = std::max(inSpan.front().time, 0.0);
      EXPECT_LE(made[i]->heard(), stop + frame + delay + kRounding);
      EXPECT_GE(made[i]->heard(), std::min(stop - early, sounds[i]->heard()) - frame - kRounding);
      if (picturesInSpan().empty()) continue;
      // Where AVI puts pictures is rounded to their rate, which may be a few a second.
      const double grid = container == "avi" ? std::max(0.1, usualTime() / 2) : 0;
      const double tolerance = frame + kRounding + grid;
      EXPECT_NEAR(made[i]->end() - shiftOf(result), stop, tolerance);
    }
  }

  TempDir folder_;
  fs::path clip_;
  nlohmann::json facts_;
  std::optional<double> span_;
  File source_;
};

TEST_P(StreamsCorpus, GoIntoEveryContainerAndWhatDoesNotIsNamed) {
  av_log_set_level(AV_LOG_FATAL);
  std::string table = GetParam() + "\n  in  " + source_.listed() + "\n";
  for (const std::string container : {"mp4", "mkv", "webm", "mov", "ts", "avi"}) {
    SCOPED_TRACE(container);
    Conversion conversion(settingsFor(container));
    if (isEmpty()) {
      EXPECT_THROW(conversion.run(), Failure);
      continue;
    }
    const Report report = conversion.run();
    const ConversionPlan& plan = conversion.plan();
    const File result = decoded(folder_ / ("out." + container));
    table += "  " + container + std::string(4 - container.size(), ' ') + result.listed() + "\n";
    for (const std::string& sentence : report.leftOut)
      table += "      " + sentence.substr(sentence.find("': ") + 3) + "\n";
    nothingIsLostUnnamed(plan, report);
    streamsAreThose(plan, report, result);
    picturesAreAllThere(container, result);
    soundsAreAsLong(container, result);
  }
  std::cout << table;
}

INSTANTIATE_TEST_SUITE_P(, StreamsCorpus, testing::ValuesIn(clipNames()), [](const auto& tested) {
  std::string name = tested.param.empty() ? "none" : tested.param;
  std::ranges::replace_if(
      name, [](char c) { return std::isalnum(static_cast<unsigned char>(c)) == 0; }, '_');
  return name;
});

}  // namespace
}  // namespace kestrel::test
