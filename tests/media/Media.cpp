#include "tests/media/Media.h"

#include <stdexcept>

#include "tests/support/Process.h"

namespace kestrel::test {

int64_t sampleCountOf(const std::filesystem::path& file, int audioStream) {
  const std::string stream = "0:a:" + std::to_string(audioStream);
  const RunResult result = run({"ffmpeg", "-v", "error", "-nostdin", "-i", file.string(), "-map",
                                stream, "-ac", "1", "-c:a", "pcm_s16le", "-f", "s16le", "-"});
  if (result.status != 0) throw std::runtime_error("ffmpeg '" + file.string() + "': " + result.err);
  return static_cast<int64_t>(result.out.size() / sizeof(int16_t));
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

}  // namespace kestrel::test
