#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/Losses.h"
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
