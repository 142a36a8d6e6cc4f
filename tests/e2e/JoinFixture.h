#pragma once

#include <gtest/gtest.h>
#include <kestrel/KeyedArchiver.h>
#include <kestrel/VideoJoiner.h>

#include <filesystem>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "tests/e2e/Kestrel.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {

/// What `cut` does without encoding.
inline const Arguments kCopy{"-c", "copy"};
inline const Arguments kBFrames{"-c:v", "mpeg4", "-bf",  "2",   "-g",  "25",
                                "-q:v", "3",     "-c:a", "mp3", "-ac", "2"};

/// Joins files by `kestrel join` and by the worker, into a folder of its own.
class JoinTest : public testing::Test {
 protected:
  static RunResult join(const std::vector<std::filesystem::path>& inputs,
                        const std::filesystem::path& output, const Arguments& options = {}) {
    Arguments arguments{kestrelBinary(), "join"};
    for (const std::filesystem::path& input : inputs) arguments.push_back(input.string());
    return run(joined(joined(arguments, {"-o", output.string()}), options));
  }

  /// The same by the worker, with an archive of what it is to do.
  RunResult work(const std::filesystem::path& output,
                 const std::vector<std::tuple<std::filesystem::path, double, double>>& items) {
    const auto joiner = std::make_shared<VideoJoiner>();
    joiner->setPath(output.string());
    for (const auto& [path, position, rate] : items) joiner->join(path.string(), position, rate);
    const auto archive = folder_ / "archive";
    KeyedArchiver::archiveRootObject(joiner, archive.string());
    return run({worker(), "joiner", archive.string()});
  }

  static std::string worker() {
    return (std::filesystem::path(kestrelBinary()).parent_path() / "QTMovieHelperTask").string();
  }

  /// Copies a clip into a container, and cuts it there at the key picture at 2 s.
  void cut(const std::string& clip, const std::string& extension, const Arguments& codecs) {
    const auto whole = folder_ / "whole.mkv";
    ffmpeg(joined({"-i", fixture(clip).string()}, joined(codecs, {whole.string()})));
    ffmpeg({"-i", whole.string(), "-map", "0", "-c", "copy", "-f", "segment", "-segment_times", "2",
            "-reset_timestamps", "1", (folder_ / "part%d.mkv").string()});
    for (const std::string name : {"whole", "part0", "part1", "part2"}) {
      const auto file = folder_ / (name + ".mkv");
      if (extension != "mkv" && std::filesystem::exists(file))
        ffmpeg({"-i", file.string(), "-map", "0", "-c", "copy",
                (folder_ / (name + "." + extension)).string()});
    }
    whole_ = folder_ / ("whole." + extension);
    first_ = folder_ / ("part0." + extension);
    second_ = folder_ / ("part1." + extension);
    joined_ = folder_ / ("joined." + extension);
  }

  TempDir folder_;
  std::filesystem::path whole_, first_, second_, joined_;
};

}  // namespace kestrel::test
