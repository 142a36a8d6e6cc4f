#include "tests/media/Media.h"

#include <sstream>
#include <stdexcept>

#include "tests/support/Process.h"

extern "C" {
#include <libavutil/adler32.h>
#include <libavutil/cpu.h>
#include <libavutil/imgutils.h>
}

namespace kestrel::test {

namespace {

std::string ffmpegOutput(const std::filesystem::path& file,
                         const std::vector<std::string>& arguments, int threads = 0) {
  std::vector<std::string> command{"ffmpeg", "-v", "error", "-nostdin", "-noautorotate"};
  if (threads > 0) command.insert(command.end(), {"-threads", std::to_string(threads)});
  command.insert(command.end(), {"-i", file.string()});
  command.insert(command.end(), arguments.begin(), arguments.end());
  const RunResult result = run(command);
  if (result.status != 0) throw std::runtime_error("ffmpeg '" + file.string() + "': " + result.err);
  return result.out;
}

/// The words between the commas of a line.
std::vector<std::string> fieldsOf(const std::string& line) {
  std::vector<std::string> fields;
  std::istringstream text(line);
  for (std::string field; std::getline(text, field, ',');) fields.push_back(field);
  return fields;
}

}  // namespace

std::vector<int64_t> pictureTimesOf(const std::filesystem::path& file) {
  const auto json = ffprobeJson(file, {"-select_streams", "v:0", "-show_frames", "-show_entries",
                                       "frame=best_effort_timestamp"});
  std::vector<int64_t> times;
  for (const auto& frame : json["frames"])
    if (frame.contains("best_effort_timestamp")) times.push_back(frame["best_effort_timestamp"]);
  return times;
}

std::vector<uint32_t> pictureSumsOf(const std::filesystem::path& file, int threads) {
  std::istringstream lines(ffmpegOutput(
      file, {"-map", "0:v:0", "-fps_mode", "passthrough", "-c", "rawvideo", "-f", "framecrc", "-"},
      threads));
  std::vector<uint32_t> sums;
  for (std::string line; std::getline(lines, line);)
    if (!line.empty() && line[0] != '#')
      sums.push_back(static_cast<uint32_t>(std::stoul(fieldsOf(line).at(5), nullptr, 16)));
  return sums;
}

uint32_t pictureSum(const AVFrame& frame) {
  const auto format = static_cast<AVPixelFormat>(frame.format);
  const int size = av_image_get_buffer_size(format, frame.width, frame.height, 1);
  if (size < 0) throw std::runtime_error("not a picture");
  std::vector<uint8_t> bytes(static_cast<size_t>(size));
  av_image_copy_to_buffer(bytes.data(), size, frame.data, frame.linesize, format, frame.width,
                          frame.height, 1);
  return static_cast<uint32_t>(av_adler32_update(0, bytes.data(), bytes.size()));
}

int64_t sampleCountOf(const std::filesystem::path& file, int audioStream) {
  const std::string stream = "0:a:" + std::to_string(audioStream);
  const std::string samples =
      ffmpegOutput(file, {"-map", stream, "-ac", "1", "-c:a", "pcm_s16le", "-f", "s16le", "-"});
  return static_cast<int64_t>(samples.size() / sizeof(int16_t));
}

std::vector<int64_t> middlesOf(const LMFFMedia& media, const std::vector<int64_t>& times) {
  std::vector<int64_t> starts;
  for (const int64_t time : times)
    starts.push_back(av_rescale_q(time, toAV(media.videoStream()->timebase()), kMicroseconds) -
                     media.start_time());
  std::vector<int64_t> middles;
  for (size_t i = 0; i + 1 < starts.size(); ++i) middles.push_back((starts[i] + starts[i + 1]) / 2);
  if (starts.size() > 1) middles.push_back(2 * starts.back() - middles.back());
  return middles;
}

ForcedCpuCount::ForcedCpuCount(int count) { av_cpu_force_count(count); }

ForcedCpuCount::~ForcedCpuCount() { av_cpu_force_count(0); }

}  // namespace kestrel::test
