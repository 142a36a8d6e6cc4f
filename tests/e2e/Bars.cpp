#include "tests/e2e/Bars.h"

#include <cstdlib>
#include <map>

namespace kestrel::test {

namespace fs = std::filesystem;

const std::vector<Rgb>& barColors() {
  static const std::vector<Rgb> kColors = [] {
    std::vector<Rgb> colors;
    for (const int level : {191, 255})
      for (int bits = 0; bits < 8; ++bits)
        colors.push_back({bits & 1 ? level : 0, bits & 2 ? level : 0, bits & 4 ? level : 0});
    return colors;
  }();
  return kColors;
}

std::vector<Rgb> barsSeenThrough(const fs::path& file, const std::string& matrix,
                                 const std::string& range) {
  // One pixel in the middle of each bar, halfway down.
  const auto video = streamOf(file, "video");
  const size_t width = video["width"];
  const size_t height = video["height"];
  const std::string bytes = pictureBytes(
      file, "trim=end_frame=1,scale=in_color_matrix=" + matrix + ":in_range=" + range +
                ":out_range=pc:flags=accurate_rnd+full_chroma_int+full_chroma_inp,format=rgb24");
  const size_t bars = barColors().size();
  std::vector<Rgb> colors;
  for (size_t bar = 0; bar < bars; ++bar) {
    const size_t x = (2 * bar + 1) * width / (2 * bars);
    const size_t at = (height / 2 * width + x) * 3;
    Rgb color;
    for (size_t i = 0; i < 3; ++i) color[i] = static_cast<uint8_t>(bytes.at(at + i));
    colors.push_back(color);
  }
  return colors;
}

std::vector<Rgb> barsAsTagged(const fs::path& file) {
  static const std::map<std::string, std::string> kMatrices{
      {"bt709", "bt709"}, {"smpte170m", "bt601"}, {"bt470bg", "bt601"}};
  const auto video = streamOf(file, "video");
  return barsSeenThrough(file, kMatrices.at(video.at("color_space")), video.at("color_range"));
}

int worstDifference(const std::vector<Rgb>& a, const std::vector<Rgb>& b) {
  int worst = 0;
  for (size_t bar = 0; bar < a.size(); ++bar)
    for (size_t i = 0; i < 3; ++i) worst = std::max(worst, std::abs(a[bar][i] - b.at(bar)[i]));
  return worst;
}

}  // namespace kestrel::test
