#include "tests/e2e/Look.h"

namespace kestrel::test {

namespace {

const Arguments kFine{"--video-option", "qp=1", "--encoder-preset", "ultrafast",
                      "--audio-codec",  "none", "--force"};

}  // namespace

Pixels::Pixels(const std::filesystem::path& file, double time, int width)
    : width_(width),
      bytes_(ffmpeg({"-ss", std::to_string(time), "-i", file.string(), "-frames:v", "1", "-f",
                     "rawvideo", "-pix_fmt", "rgb24", "-"})) {}

Rgb Pixels::at(int x, int y) const {
  const auto offset = static_cast<size_t>((y * width_ + x) * 3);
  const auto byte = [&](size_t i) { return int{static_cast<uint8_t>(bytes_.at(offset + i))}; };
  return {byte(0), byte(1), byte(2)};
}

int Pixels::brightInRow(int y) const {
  int count = 0;
  for (int x = 0; x < width_; ++x) count += at(x, y)[1] > 128 ? 1 : 0;
  return count;
}

int Pixels::bright() const {
  int count = 0;
  for (int y = 0; y < height(); ++y) count += brightInRow(y);
  return count;
}

std::filesystem::path LookTest::made(const std::string& name, const std::string& graph,
                                     const Arguments& options) {
  const auto file = folder_ / name;
  ffmpeg(
      joined(joined({"-f", "lavfi", "-i", graph, "-c:v", "ffv1", "-pix_fmt", "yuv420p"}, options),
             {file.string()}));
  return file;
}

std::filesystem::path LookTest::converted(const std::filesystem::path& source,
                                          const Arguments& options, const std::string& name) {
  const auto output = folder_ / name;
  EXPECT_TRUE(converts(source, output, joined(options, kFine)));
  return output;
}

}  // namespace kestrel::test
