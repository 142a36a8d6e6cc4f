#include <gmock/gmock.h>
#include <kestrel/MovieAudioTaskExtractWave.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <filesystem>
#include <thread>

#include "tests/e2e/Decoded.h"
#include "tests/support/FileBytes.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

namespace fs = std::filesystem;
using testing::IsEmpty;

struct Point {
  float min = 0;
  float max = 0;
  double rms = 0;
};

/// Points worked out one sample after the other from what ffmpeg decodes.
std::vector<Point> bruteForce(const fs::path& file, int channels, int channel, size_t perPoint,
                              bool isMean) {
  const std::vector<float> all = samples(file);
  std::vector<Point> points;
  const size_t count = all.size() / static_cast<size_t>(channels);
  for (size_t begin = 0; begin < count; begin += perPoint) {
    const size_t end = std::min(begin + perPoint, count);
    Point point{2, -2, 0};
    for (size_t i = begin; i < end; ++i) {
      float value = 0;
      for (int c = 0; c < channels; ++c)
        if (isMean || c == channel)
          value += all[i * static_cast<size_t>(channels) + static_cast<size_t>(c)];
      if (isMean) value /= static_cast<float>(channels);
      point.min = std::min(point.min, value);
      point.max = std::max(point.max, value);
      point.rms += static_cast<double>(value) * value;
    }
    point.rms = std::sqrt(point.rms / static_cast<double>(end - begin));
    points.push_back(point);
  }
  return points;
}

int inBits(float value, int bits) {
  const double full = std::pow(2, bits - 1);
  return static_cast<int>(std::lround(std::clamp(value * full, -full, full - 1)));
}

class WaveTest : public testing::Test {
 protected:
  static RunResult wave(const fs::path& input, const fs::path& output,
                        const Arguments& options = {}) {
    return run(joined({kestrelBinary(), "wave", input.string(), output.string()}, options));
  }

  nlohmann::json waveJson(const fs::path& input, const Arguments& options = {}) {
    const auto output = folder_ / "out.json";
    const RunResult result = wave(input, output, joined(options, {"--force"}));
    EXPECT_EQ(result.status, 0) << result.err;
    return nlohmann::json::parse(readBytes(output));
  }

  static std::string worker() {
    return (fs::path(kestrelBinary()).parent_path() / "SamplePointsTask").string();
  }

  TempDir folder_;
};

TEST_F(WaveTest, PeaksAreThoseOfABruteForceComputation) {
  for (const std::string name : {"av25.mp4", "numbered25.mp4", "numbered25.mkv"}) {
    SCOPED_TRACE(name);
    const auto document = waveJson(fixture(name), {"--points-per-second", "40"});
    EXPECT_EQ(document["version"], 2);
    EXPECT_EQ(document["channels"], 1);
    EXPECT_EQ(document["sample_rate"], 44100);
    EXPECT_EQ(document["samples_per_pixel"], 1103);  // 44100 / 40, rounded
    EXPECT_EQ(document["bits"], 16);
    const int channels = streamOf(fixture(name), "audio")["channels"];
    const auto points = bruteForce(fixture(name), channels, 0, 1103, true);
    ASSERT_EQ(document["length"], points.size());
    ASSERT_EQ(document["data"].size(), 2 * points.size());
    for (size_t i = 0; i < points.size(); ++i) {
      EXPECT_NEAR(document["data"][2 * i].get<int>(), inBits(points[i].min, 16), 1) << i;
      EXPECT_NEAR(document["data"][2 * i + 1].get<int>(), inBits(points[i].max, 16), 1) << i;
    }
  }
}

TEST_F(WaveTest, ChannelsMayStandSideBySide) {
  const auto clip = folder_ / "stereo.wav";
  ffmpeg(
      {"-f", "lavfi", "-i", "aevalsrc=0.5*sin(600*t)|0.25*sin(900*t):s=48000:d=1", clip.string()});
  const auto document = waveJson(clip, {"--split-channels", "--bits", "8"});
  EXPECT_EQ(document["channels"], 2);
  EXPECT_EQ(document["bits"], 8);
  EXPECT_EQ(document["length"], 100);
  ASSERT_EQ(document["data"].size(), 400);
  for (int channel = 0; channel < 2; ++channel) {
    const auto points = bruteForce(clip, 2, channel, 480, false);
    for (size_t i = 0; i < 100; ++i) {
      const size_t at = 4 * i + 2 * static_cast<size_t>(channel);
      EXPECT_NEAR(document["data"][at].get<int>(), inBits(points[i].min, 8), 1);
      EXPECT_NEAR(document["data"][at + 1].get<int>(), inBits(points[i].max, 8), 1);
    }
  }
}

TEST_F(WaveTest, ThePictureIsHighWhereTheSoundIsLoud) {
  const auto clip = folder_ / "half.wav";
  ffmpeg({"-f", "lavfi", "-i", "aevalsrc=0.9*sin(600*t)*lt(t\\,1):s=48000:d=2", clip.string()});
  const auto output = folder_ / "out.png";
  ASSERT_EQ(wave(clip, output, {"--size", "200x100"}).status, 0);
  const auto pictures = greyPictures(output, 200, 100);
  ASSERT_EQ(pictures.size(), 1);
  const auto lit = [&](int x) {
    int count = 0;
    for (int y = 0; y < 100; ++y)
      count += static_cast<uint8_t>(
                   pictures[0][static_cast<size_t>(y) * 200 + static_cast<size_t>(x)]) > 64;
    return count;
  };
  EXPECT_NEAR(lit(50), 85, 6);  // 0.9 of the height that is used
  EXPECT_NEAR(lit(150), 1, 1);  // silence is a line
}

TEST_F(WaveTest, TracksAreChosenByNumber) {
  const auto clip = fixture("av-tracks.mkv");
  const auto first = waveJson(clip, {"--tracks", "0"});
  const auto second = waveJson(clip, {"--tracks", "1"});
  const auto both = waveJson(clip, {"--tracks", "0,1"});
  EXPECT_NE(first["data"], second["data"]);
  EXPECT_EQ(both["channels"], 2);
  EXPECT_EQ(both["data"][4], first["data"][2]);
  EXPECT_EQ(both["data"][6], second["data"][2]);
}

TEST_F(WaveTest, SoundThatBeginsLaterHasSilenceBeforeIt) {
  const auto document = waveJson(fixture("av-late-audio.mkv"));
  EXPECT_EQ(document["data"][2 * 45].get<int>(), 0);
  EXPECT_LT(document["data"][2 * 55].get<int>(), -1000);
}

TEST_F(WaveTest, AClockThatIsSetAnewOnTheWayIsNoHole) {
  const auto clip = folder_ / "leap.ts";
  const auto sound = [&](const char* name, const char* offset) {
    const auto file = folder_ / name;
    ffmpeg({"-f", "lavfi", "-i", "aevalsrc=0.5*sin(600*t):s=48000:d=2", "-c:a", "mp2",
            "-output_ts_offset", offset, file.string()});
    return readBytes(file);
  };
  writeBytes(clip, sound("a.ts", "0") + sound("b.ts", "50000") + sound("c.ts", "100"));
  const auto document = waveJson(clip);
  EXPECT_NEAR(document["length"].get<int>(), 600, 15);
  const auto both = waveJson(clip, {"--tracks", "0"});
  EXPECT_EQ(document, both);
}

TEST_F(WaveTest, SoundMayChangeItsChannelsOnTheWay) {
  const auto clip = folder_ / "changing.ts";
  const auto sound = [&](const char* name, const char* what, const char* offset) {
    const auto file = folder_ / name;
    ffmpeg({"-f", "lavfi", "-i", what, "-c:a", "aac", "-output_ts_offset", offset, file.string()});
    return readBytes(file);
  };
  writeBytes(clip, sound("a.ts", "aevalsrc=0.5*sin(600*t)|0.5*sin(600*t):s=48000:d=2", "0") +
                       sound("b.ts", "aevalsrc=0.25*sin(600*t):s=48000:d=2", "2"));
  const auto document = waveJson(clip);
  EXPECT_NEAR(document["length"].get<int>(), 400, 15);
  const auto highest = [&](int from, int to) {
    int best = 0;
    for (int i = from; i < to; ++i)
      best = std::max(best, document["data"][2 * static_cast<size_t>(i) + 1].get<int>());
    return best / 32768.0;
  };
  EXPECT_NEAR(highest(50, 150), 0.5, 0.05);
  EXPECT_NEAR(highest(250, 350), 0.25, 0.08);  // mono may be spread over two sides at less power
}

TEST_F(WaveTest, AnInputThatEndsEarlyIsToldOf) {
  const auto whole = folder_ / "whole.mp4";
  ffmpeg({"-i", fixture("numbered25.mp4").string(), "-c", "copy", "-movflags", "+faststart",
          whole.string()});
  const std::string bytes = readBytes(whole);
  writeBytes(folder_ / "cut.mp4", bytes.substr(0, bytes.size() / 2));
  const RunResult result = wave(folder_ / "cut.mp4", folder_ / "out.json");
  EXPECT_EQ(result.status, 3);
  EXPECT_THAT(result.err, testing::HasSubstr("cut.mp4' ended early, at "));
  EXPECT_TRUE(fs::exists(folder_ / "out.json"));
  const RunResult ofWorker =
      run({worker(), (folder_ / "cut.mp4").string(), (folder_ / "result").string()});
  EXPECT_EQ(ofWorker.status, 3);
  EXPECT_THAT(ofWorker.err, testing::HasSubstr("cut.mp4' ended early, at "));
  EXPECT_TRUE(PropertyList::fromFile((folder_ / "result").string()));
  EXPECT_EQ(wave(whole, folder_ / "whole.json").status, 0);
}

// Every tenth packet of the sound is cut to half its length.
TEST_F(WaveTest, DamagedSoundIsToldOf) {
  const auto damaged = folder_ / "damaged.mka";
  ffmpeg({"-f", "lavfi", "-i", "sine=d=5", "-c:a", "flac", "-bsf:a",
          "noise=amount='if(mod(n,10),0,-30)':drop=0", damaged.string()});
  const RunResult result = wave(damaged, folder_ / "out.json");
  EXPECT_EQ(result.status, 3) << result.err;
  EXPECT_THAT(result.err, testing::HasSubstr("kestrel: '" + damaged.string() + "' is damaged: "));
  const RunResult ofWorker = run({worker(), damaged.string(), (folder_ / "result").string()});
  EXPECT_EQ(ofWorker.status, 3) << ofWorker.err;
  EXPECT_THAT(ofWorker.err, testing::HasSubstr("SamplePointsTask: '" + damaged.string()));
  EXPECT_TRUE(PropertyList::fromFile((folder_ / "result").string()));
}

TEST_F(WaveTest, WrongUsageIsOneSentence) {
  const auto clip = fixture("av25.mp4");
  EXPECT_TRUE(endsWithSentence(wave(clip, folder_ / "out.txt"), 2, ".json"));
  EXPECT_TRUE(endsWithSentence(wave(clip, folder_ / "out.json", {"--tracks", "4"}), 2,
                               "--tracks: there is no audio track 4: the input has 1"));
  EXPECT_TRUE(endsWithSentence(wave(clip, folder_ / "out.json", {"--tracks", "x"}), 2, "--tracks"));
  EXPECT_TRUE(
      endsWithSentence(wave(clip, folder_ / "out.json", {"--points-per-second", "0"}), 2, "above"));
  EXPECT_TRUE(endsWithSentence(wave(clip, folder_ / "out.png", {"--size", "9x"}), 2, "--size"));
  EXPECT_TRUE(endsWithSentence(wave(clip, folder_ / "out.png", {"--size", "0x2"}), 2,
                               "a size such as 1200x240"));
  EXPECT_TRUE(endsWithSentence(wave(clip, folder_ / "out.json", {"--bits", "9"}), 2, "--bits"));
  EXPECT_TRUE(endsWithSentence(wave(clip, folder_ / "out.json", {"--size", "9x9"}), 2, "--size"));
  EXPECT_TRUE(endsWithSentence(wave(clip, folder_ / "out.png", {"--bits", "8"}), 2, "--bits"));
  EXPECT_TRUE(
      endsWithSentence(wave(clip, folder_ / "out.png", {"--size", "99999x10"}), 2, "16384"));
  EXPECT_TRUE(
      endsWithSentence(wave(clip, folder_ / "out.png", {"--size", "16384x8193"}), 2, "134217728"));
  EXPECT_TRUE(endsWithSentence(wave("absent.mp4", folder_ / "out.json"), 1, "absent.mp4"));
  const auto silent = folder_ / "silent.mp4";
  ffmpeg({"-i", clip.string(), "-an", "-c", "copy", silent.string()});
  EXPECT_TRUE(endsWithSentence(wave(silent, folder_ / "out.json"), 1, "no sound"));
  EXPECT_EQ(namesIn(folder_.path()), std::set<std::string>{"silent.mp4"});
}

// --- The worker.

TEST_F(WaveTest, TheWorkersResultOpensInPython) {
  const auto clip = fixture("av25.mp4");
  const auto result = folder_ / "result";
  ASSERT_EQ(run({worker(), clip.string(), result.string()}).status, 0);
  const RunResult read = run({"python3", "-c", R"(
import plistlib, sys, array
p = plistlib.load(open(sys.argv[1], 'rb'))
print(p['sampleRate'], p['channels'], p['samplesPerPoint'], p['pointsPerSecond'], len(p['sample']))
for kind in ('min', 'max', 'rms'):
  values = array.array('f', p['sample'][0][kind])
  print(len(values), *['%.6f' % v for v in values[10:20]])
)",
                              result.string()});
  ASSERT_EQ(read.status, 0) << read.err;
  const auto points = bruteForce(clip, 2, 0, 882, false);
  std::istringstream out(read.out);
  std::string line;
  std::getline(out, line);
  EXPECT_EQ(line, "44100 2 882 50.0 2");
  for (int kind = 0; kind < 3; ++kind) {
    size_t count = 0;
    out >> count;
    EXPECT_EQ(count, points.size());
    for (size_t i = 10; i < 20; ++i) {
      double value = 0;
      out >> value;
      const Point& point = points[i];
      EXPECT_NEAR(value, kind == 0 ? point.min : kind == 1 ? point.max : point.rms, 1e-4);
    }
  }
}

TEST_F(WaveTest, TheWorkerTakesSelectorsAndTellsItsProgress) {
  const RunOptions options{.environment = {"XDG_RUNTIME_DIR=" + folder_.path().string()}};
  setenv("XDG_RUNTIME_DIR", folder_.path().c_str(), 1);
  const MovieAudioTaskExtractWave reader;
  EXPECT_EQ(reader.progress(), 0);
  const auto result = folder_ / "result";
  const auto clip = fixture("av-tracks.mkv").string();
  EXPECT_EQ(run({worker(), clip, result.string(), "0-1"}, options).status, 0);
  EXPECT_EQ(reader.progress(), 1);
  const auto list = PropertyList::fromFile(result.string());
  ASSERT_TRUE(list);
  EXPECT_EQ(list->find("sample")->as<PropertyList::Array>()->size(), 4);
  EXPECT_NE(run({worker(), clip, result.string(), "0-7"}, options).status, 0);
  EXPECT_NE(run({worker(), clip, result.string(), "x"}, options).status, 0);
  EXPECT_NE(run({worker(), clip}, options).status, 0);
  unsetenv("XDG_RUNTIME_DIR");
}

TEST_F(WaveTest, TheWorkerTellsItsProgressAndStopsWhenTerminated) {
  // Days of sound that take no room: what nobody has written reads as zeros.
  constexpr uint32_t kBytes = 4000000000U;
  const auto clip = folder_ / "days.wav";
  std::string head = "RIFF....WAVEfmt ....................data....";
  const auto put = [&](size_t at, uint32_t value, size_t size) {
    for (size_t i = 0; i < size; ++i) head[at + i] = static_cast<char>(value >> (8 * i));
  };
  put(4, kBytes + 36, 4);
  put(16, 16, 4);    // bytes of the format
  put(20, 1, 2);     // PCM
  put(22, 1, 2);     // channels
  put(24, 8000, 4);  // samples per second
  put(28, 8000, 4);  // bytes per second
  put(32, 1, 2);     // bytes per sample
  put(34, 8, 2);     // bits
  put(40, kBytes, 4);
  writeBytes(clip, head);
  fs::resize_file(clip, head.size() + kBytes);

  setenv("XDG_RUNTIME_DIR", folder_.path().c_str(), 1);
  const MovieAudioTaskExtractWave reader;
  const auto result = folder_ / "result";
  Process process({worker(), clip.string(), result.string()},
                  {.environment = {"XDG_RUNTIME_DIR=" + folder_.path().string()}});
  std::vector<double> seen{0};
  while (seen.size() < 5 && !fs::exists(result)) {
    const double now = reader.progress();
    if (now != seen.back()) seen.push_back(now);
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  process.signal(SIGTERM);
  EXPECT_EQ(process.wait().status, 130);
  EXPECT_FALSE(fs::exists(result));
  EXPECT_TRUE(std::ranges::is_sorted(seen));
  EXPECT_LT(seen.back(), 1);
  unsetenv("XDG_RUNTIME_DIR");
}

}  // namespace
}  // namespace kestrel::test
