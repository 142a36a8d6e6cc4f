#include "tests/output/MovieOutput.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numbers>
#include <sstream>
#include <stdexcept>

#include "tests/frames/Pictures.h"
#include "tests/support/Ffprobe.h"
#include "tests/support/Peer.h"

namespace kestrel::test {

namespace {

std::string ffmpeg(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), {"ffmpeg", "-v", "error", "-nostdin"});
  const RunResult result = runPeer(arguments);
  if (result.status != 0) throw std::runtime_error("ffmpeg: " + result.err);
  return result.out;
}

/// The last, comma-separated field of each line that is no comment.
std::vector<std::string> sums(const std::string& text) {
  std::vector<std::string> result;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    if (line.empty() || line.front() == '#') continue;
    result.push_back(line.substr(line.find_last_of(" ,") + 1));
  }
  return result;
}

/// Keeps the libraries as quiet as a movie does.
class QuietLibraries : public testing::Environment {
 public:
  void SetUp() override { av_log_set_level(AV_LOG_FATAL); }
};

[[maybe_unused]] const auto* const kQuietLibraries =
    testing::AddGlobalTestEnvironment(new QuietLibraries);

}  // namespace

LMFFMovieFileOutputFormat smallFormat(int videoCodec, int audioCodec) {
  LMFFMovieFileOutputFormat format = lm_get_default_movie_file_ouput_format();
  format.width = 160;
  format.height = 120;
  format.video_codec = videoCodec;
  format.video_bitrate = 400000;
  format.framerate = 25;
  format.frameTime = 1;
  format.channel_layout = lm_get_default_channel_layout(1);
  format.audio_codec = audioCodec;
  format.audio_bitrate = 64000;
  return format;
}

void writePictures(LMFFMovieFileOutput& output, int count) {
  const LMFFVideoFormat format = output.outputVideoFormat();
  for (int i = 0; i < count; i++) {
    output.writeVideoFrame(greyPicture(format.width, format.height, 16 + 4 * i % 200).get());
  }
}

void writeTone(LMFFMovieFileOutput& output, int count, int first) {
  std::vector<float> samples;
  samples.reserve(static_cast<size_t>(count) * 2);
  for (int i = first; i < first + count; i++) {
    const auto value = static_cast<float>(0.5 * std::sin(2 * std::numbers::pi * 441 * i / 44100));
    samples.insert(samples.end(), {value, value});
  }
  output.writeSample(samples.data(), count);
}

void start(LMFFMovieFileOutput& output, const std::filesystem::path& path, bool video, bool audio) {
  output.setPath(path.string());
  if (video) output.openVideo();
  if (audio) output.openAudio();
  ASSERT_EQ(output.isVideoOpen(), video) << output.lastError().message;
  ASSERT_EQ(output.isAudioOpen(), audio) << output.lastError().message;
  ASSERT_TRUE(output.startOutput()) << output.lastError().message;
}

nlohmann::json streamOf(const std::filesystem::path& file, const std::string& kind) {
  const nlohmann::json probed =
      ffprobeJson(file, {"-show_streams", "-count_packets", "-select_streams", kind + ":0"});
  return probed["streams"].empty() ? nlohmann::json() : probed["streams"][0];
}

double lengthOf(const std::filesystem::path& file) {
  return number(ffprobeJson(file, {"-show_format"})["format"]["duration"]);
}

std::vector<nlohmann::json> packetsOf(const std::filesystem::path& file, const std::string& kind) {
  const nlohmann::json probed =
      ffprobeJson(file, {"-show_packets", "-select_streams", kind + ":0"});
  return probed["packets"].get<std::vector<nlohmann::json>>();
}

double number(const nlohmann::json& value) { return std::stod(value.get<std::string>()); }

std::vector<int64_t> fieldOf(const std::vector<nlohmann::json>& packets, const std::string& field) {
  std::vector<int64_t> values;
  for (const nlohmann::json& packet : packets) {
    values.push_back(packet.value(field, AV_NOPTS_VALUE));
  }
  return values;
}

std::vector<std::string> pictureSums(const std::filesystem::path& file) {
  return sums(ffmpeg(
      {"-i", file.string(), "-map", "0:v:0", "-vsync", "passthrough", "-f", "framemd5", "-"}));
}

std::vector<std::string> packetSums(const std::filesystem::path& file, const std::string& kind,
                                    const std::string& filter) {
  const std::string stream = "0:" + kind + (kind.find(':') == std::string::npos ? ":0" : "");
  std::vector<std::string> arguments = {"-i", file.string(), "-map",   stream,
                                        "-c", "copy",        "-copyts"};
  if (!filter.empty()) arguments.insert(arguments.end(), {"-bsf:" + kind, filter});
  arguments.insert(arguments.end(), {"-f", "framemd5", "-"});
  return sums(ffmpeg(arguments));
}

std::vector<double> meanLumas(const std::filesystem::path& file) {
  const nlohmann::json stream = streamOf(file, "v");
  const size_t size = stream["width"].get<size_t>() * stream["height"].get<size_t>();
  const std::string pixels =
      ffmpeg({"-i", file.string(), "-map", "0:v:0", "-vsync", "passthrough", "-vf",
              "format=yuv420p,extractplanes=y", "-f", "rawvideo", "-"});
  std::vector<double> means;
  for (size_t at = 0; at + size <= pixels.size(); at += size) {
    double total = 0;
    for (size_t i = at; i < at + size; i++) total += static_cast<uint8_t>(pixels[i]);
    means.push_back(total / static_cast<double>(size));
  }
  return means;
}

std::vector<float> decodedSound(const std::filesystem::path& file) {
  const std::string bytes =
      ffmpeg({"-i", file.string(), "-map", "0:a:0", "-ac", "1", "-f", "f32le", "-"});
  std::vector<float> samples(bytes.size() / sizeof(float));
  if (!samples.empty()) std::memcpy(samples.data(), bytes.data(), samples.size() * sizeof(float));
  return samples;
}

PacketReader::PacketReader(const std::filesystem::path& file) {
  AVFormatContext* input = nullptr;
  if (avformat_open_input(&input, file.c_str(), nullptr, nullptr) < 0) {
    throw std::runtime_error("cannot open " + file.string());
  }
  input_.reset(input);
  if (avformat_find_stream_info(input, nullptr) < 0) throw std::runtime_error("no streams");
}

AVStream* PacketReader::streamOfType(AVMediaType type) const {
  const int index = av_find_best_stream(input_.get(), type, -1, -1, nullptr, 0);
  return index < 0 ? nullptr : input_->streams[index];
}

std::shared_ptr<LMFFImage> PacketReader::next() {
  const PacketPtr packet = makePacket();
  if (av_read_frame(input_.get(), packet.get()) < 0) return nullptr;
  auto item = LMFFImage::imageWithPacket(packet.get());
  item->setTime_base(fromAV(input_->streams[packet->stream_index]->time_base));
  return item;
}

Error copyFile(const std::filesystem::path& from, const std::filesystem::path& to) {
  PacketReader reader(from);
  LMFFMovieFileOutput output;
  output.setPath(to.string());
  AVStream* video = reader.video();
  AVStream* audio = reader.audio();
  if (video) output.copyOutputStream(video);
  if (audio) output.copyOutputStream(audio);
  if (!output.startOutput()) return output.lastError();
  while (const auto item = reader.next()) {
    const int index = item->getPacket()->stream_index;
    if (video && index == video->index) output.writeVideoPacket(item);
    if (audio && index == audio->index) output.writeAudioPacket(item);
  }
  output.stopOutput();
  return output.lastError();
}

std::shared_ptr<LMFFImage> packetItem(Rational timeBase, int64_t pts, int64_t dts, int64_t duration,
                                      int size) {
  const PacketPtr packet = makePacket();
  if (av_new_packet(packet.get(), size) < 0) throw std::bad_alloc();
  std::memset(packet->data, 0x55, static_cast<size_t>(size));
  packet->pts = pts;
  packet->dts = dts;
  packet->duration = duration;
  packet->flags = AV_PKT_FLAG_KEY;
  auto item = LMFFImage::imageWithPacket(packet.get());
  item->setTime_base(timeBase);
  return item;
}

}  // namespace kestrel::test
