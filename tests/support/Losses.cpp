#include "tests/support/Losses.h"

#include <regex>
#include <sstream>

namespace kestrel::test {

bool tellsOfALoss(const std::string& line) {
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

std::string withoutLosses(const std::string& errors) {
  std::istringstream lines(errors);
  std::string others;
  for (std::string line; std::getline(lines, line);)
    if (!tellsOfALoss(line)) others += line + '\n';
  return others;
}

}  // namespace kestrel::test
