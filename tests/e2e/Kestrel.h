#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/Peer.h"

namespace kestrel::test {

using Arguments = std::vector<std::string>;

/// The program under test: it lies in tools/ of the build folder that has the test's own program in
/// its tests/.
inline std::string kestrelBinary() {
  const auto self = std::filesystem::read_symlink("/proc/self/exe");
  return (self.parent_path().parent_path() / "tools" / "kestrel").string();
}

inline Arguments joined(Arguments first, const Arguments& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

inline Arguments convertCommand(const std::filesystem::path& input,
                                const std::filesystem::path& output,
                                const Arguments& options = {}) {
  return joined({kestrelBinary(), "convert", input.string(), output.string()}, options);
}

/// What `kestrel convert INPUT OUTPUT options…` does.
inline RunResult convert(const std::filesystem::path& input, const std::filesystem::path& output,
                         const Arguments& options = {}, const RunOptions& run_options = {}) {
  return run(convertCommand(input, output, options), run_options);
}

/// Whether a line says of an input what of it is not in the result, and why.
inline bool tellsOfALoss(const std::string& line) {
  static const std::regex kLoss(
      "kestrel: (left out of ('.+'|standard input): "
      "((pictures|sound|subtitles|cover|font|attachment|data) #[0-9]+( \\(.+\\))?: "
      "(one video track is taken|it cannot be decoded|it is empty|"
      "none were found in what was converted|"
      "[a-z0-9_]+ (has no place for (pictures|sound)|holds one sound track|cannot hold [a-z0-9_]+)|"
      "only pictures, sound and subtitles are taken along)|"
      "[0-9]+ chapters?: [a-z0-9_]+ cannot hold them|"
      "((the (language [a-z]+|title|flag [a-z_]+) of (sound|subtitles) #[0-9]+|"
      "the tags? [a-z_]+(, [a-z_]+)*)(, |: ))+[a-z0-9_]+ cannot hold (it|them)|"
      "the turn of its pictures, which [a-z0-9_]+ cannot hold; encoding sets them upright)|"
      "lost in (pictures|sound) #[0-9]+( \\(.+\\))? of ('.+'|standard input): "
      "([0-9]+ (channels|Hz|bits) become [0-9]+: [a-z0-9_]+ has no more|"
      "[0-9]+ bits become [0-9]+, (in which looks are drawn|as [a-z0-9_-]+ takes them)|"
      "[0-9]+ bits of (PQ|HLG) become [0-9]+, which show steps: (looks are drawn in no more|"
      "depth 10 keeps them smooth|HEVC and AV1 take 10)|"
      "their (HDR10\\+|Dolby Vision), which [a-z0-9_-]+ does not write|"
      "their uneven times: [a-z0-9_]+ has one rate, [0-9.]+ a second, at which none is left out|"
      "[0-9]+ of [0-9]+: [a-z0-9_]+ has one rate, [0-9.]+ a second|"
      "they stay interlaced, and [a-z0-9_-]+ does not code their fields|"
      "their fields run into each other, where interlaced ones are shaped|"
      "a scene has 255 colours|"
      "4:[24]:[24] becomes 4:2:[02], as [a-z0-9_-]+ takes it|"
      "they lie on black(, where looks are drawn|: [a-z0-9_-]+ knows no transparency here)))");
  return std::regex_match(line, kLoss);
}

/// The lines of standard error but for those that tell of a loss.
inline std::string withoutLosses(const std::string& errors) {
  std::istringstream lines(errors);
  std::string others;
  for (std::string line; std::getline(lines, line);)
    if (!tellsOfALoss(line)) others += line + '\n';
  return others;
}

/// Whether a conversion succeeds, and tells of nothing but what of the input is left out.
inline testing::AssertionResult converts(const std::filesystem::path& input,
                                         const std::filesystem::path& output,
                                         const Arguments& options = {}) {
  const RunResult result = convert(input, output, options);
  if (result.status == 0 && result.out.empty() && withoutLosses(result.err).empty())
    return testing::AssertionSuccess();
  return testing::AssertionFailure() << "exit status " << result.status << ", output '"
                                     << result.out << "', errors '" << result.err << "'";
}

/// Whether a run ended with `status` and one sentence on standard error that mentions `name`,
/// beside what is left out of the input.
inline testing::AssertionResult endsWithSentence(const RunResult& result, int status,
                                                 const std::string& name) {
  const auto failure = [&](const std::string& what) {
    return testing::AssertionFailure() << what << ": exit status " << result.status << ", output '"
                                       << result.out << "', errors '" << result.err << "'";
  };
  if (result.status != status) return failure("not exit status " + std::to_string(status));
  if (!result.out.empty()) return failure("something on standard output");
  const std::string sentence = withoutLosses(result.err);
  if (!sentence.starts_with("kestrel: ") || std::ranges::count(sentence, '\n') != 1 ||
      !result.err.ends_with('\n'))
    return failure("not one line that begins with 'kestrel: '");
  if (sentence.find(name) == std::string::npos) return failure("no mention of '" + name + "'");
  return testing::AssertionSuccess();
}

/// Runs the ffmpeg program and answers what it writes to standard output; throws when it fails or
/// complains.
inline std::string ffmpeg(const Arguments& arguments) {
  const RunResult result = runPeer(joined({"ffmpeg", "-v", "error", "-nostdin", "-y"}, arguments));
  if (result.status != 0 || !result.err.empty())
    throw std::runtime_error("ffmpeg failed: " + result.err);
  return result.out;
}

}  // namespace kestrel::test
