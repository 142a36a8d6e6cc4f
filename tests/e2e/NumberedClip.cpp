#include "tests/e2e/NumberedClip.h"

#include <cmath>
#include <numeric>

namespace kestrel::test {

namespace fs = std::filesystem;

namespace {

constexpr int kBits = 16;
constexpr float kTickLevel = 0.3F;      // the bursts reach 0.8
constexpr double kShortestPause = 0.5;  // seconds between two ticks

int numberOf(const std::string& bars) {
  int number = 0;
  for (int bit = 0; bit < kBits; ++bit)
    if (static_cast<uint8_t>(bars[static_cast<size_t>(bit)]) > 127) number |= 1 << bit;
  return number;
}

}  // namespace

std::vector<int> shownNumbers(const fs::path& file) {
  std::vector<int> numbers;
  for (const std::string& bars : greyPictures(file, kBits, 1)) numbers.push_back(numberOf(bars));
  return numbers;
}

std::vector<ShownPicture> shownPictures(const fs::path& file) {
  const std::vector<int> numbers = shownNumbers(file);
  const std::vector<double> times = pictureTimes(file);
  if (numbers.size() != times.size()) throw std::runtime_error("pictures and their times differ");
  std::vector<ShownPicture> pictures;
  for (size_t i = 0; i < numbers.size(); ++i) pictures.push_back({times[i], numbers[i]});
  return pictures;
}

std::vector<double> tickTimes(const fs::path& file) {
  const int rate = std::stoi(streamOf(file, "audio").at("sample_rate").get<std::string>());
  const double start = soundStart(file);
  const std::vector<float> sound = samples(file, 1);
  std::vector<double> times;
  for (size_t i = 0; i < sound.size(); ++i) {
    const double time = start + static_cast<double>(i) / rate;
    const bool isNew = times.empty() || time - times.back() > kShortestPause;
    if (isNew && std::fabs(sound[i]) > kTickLevel) times.push_back(time);
  }
  return times;
}

std::vector<int> countingFrom(int first, int count) {
  std::vector<int> numbers(static_cast<size_t>(count));
  std::iota(numbers.begin(), numbers.end(), first);
  return numbers;
}

std::vector<double> ticksEvery(double period, int first, int count) {
  std::vector<double> times;
  for (int i = 0; i < count; ++i) times.push_back((first + i) * period);
  return times;
}

testing::AssertionResult keepsSync(const fs::path& file, const SyncExpectation& expected) {
  const double tolerance = 1 / expected.rate;
  for (const ShownPicture& picture : shownPictures(file)) {
    const double wanted = picture.number / expected.rate - expected.start;
    if (std::fabs(picture.time - wanted) >= tolerance)
      return testing::AssertionFailure() << "picture " << picture.number << " is shown at "
                                         << picture.time << " instead of " << wanted;
  }
  const std::vector<double> ticks = tickTimes(file);
  for (size_t i = 0; i < std::min(ticks.size(), expected.ticks.size()); ++i) {
    const double wanted = expected.ticks[i] - expected.start;
    if (std::fabs(ticks[i] - wanted) >= tolerance)
      return testing::AssertionFailure()
             << "tick " << i << " is heard at " << ticks[i] << " instead of " << wanted;
  }
  if (ticks.size() != expected.ticks.size())
    return testing::AssertionFailure()
           << ticks.size() << " ticks instead of " << expected.ticks.size();
  return testing::AssertionSuccess();
}

}  // namespace kestrel::test
