#include "tests/support/Pictures.h"

#include <sstream>
#include <stdexcept>
#include <string>

#include "tests/support/Ffprobe.h"
#include "tests/support/Peer.h"

extern "C" {
#include <libavutil/adler32.h>
#include <libavutil/frame.h>
#include <libavutil/imgutils.h>
}

namespace kestrel::test {

namespace {

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
  std::vector<std::string> command{"ffmpeg", "-v", "error", "-nostdin", "-noautorotate"};
  if (threads > 0) command.insert(command.end(), {"-threads", std::to_string(threads)});
  command.insert(command.end(), {"-i", file.string(), "-map", "0:v:0", "-fps_mode", "passthrough",
                                 "-c", "rawvideo", "-f", "framecrc", "-"});
  const RunResult result = runPeer(command);
  if (result.status != 0) throw std::runtime_error("ffmpeg '" + file.string() + "': " + result.err);
  std::istringstream lines(result.out);
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

std::vector<TimedPicture> timedPicturesOf(const std::filesystem::path& file) {
  const auto json = ffprobeJson(
      file, {"-select_streams", "v:0", "-show_frames", "-show_format", "-show_entries",
             "frame=best_effort_timestamp_time,pkt_duration_time,duration_time:format=start_time"});
  const double begin = std::stod(json.at("format").value("start_time", "0"));
  const auto sums = pictureSumsOf(file);
  const auto& frames = json.at("frames");
  if (frames.size() != sums.size()) throw std::runtime_error("pictures and their times differ");
  std::vector<TimedPicture> pictures;
  for (size_t i = 0; i < sums.size(); ++i) {
    const auto& frame = frames[i];
    const double start = std::stod(frame.at("best_effort_timestamp_time").get<std::string>());
    const char* length = frame.contains("duration_time") ? "duration_time" : "pkt_duration_time";
    pictures.push_back(
        {sums[i], start - begin, start - begin + std::stod(frame.value(length, "0"))});
    if (i > 0) pictures[i - 1].end = pictures[i].start;
  }
  return pictures;
}

}  // namespace kestrel::test
