#include "tools/terminal/Summary.h"

#include <fmt/format.h>
#include <kestrel/convert/Text.h>

#include <vector>

using namespace kestrel;

std::string shareText(const Effort& effort) {
  if (!effort.bytesRead || !effort.bytesWritten || *effort.bytesRead == 0) return {};
  return fmt::format("{:.3g} %", 100.0 * static_cast<double>(*effort.bytesWritten) /
                                     static_cast<double>(*effort.bytesRead));
}

std::string effortText(const Effort& effort) {
  std::vector<std::string> facts{formatTime(effort.length)};
  if (effort.pictures > 0) facts.push_back(fmt::format("{} pictures", effort.pictures));
  facts.back() += fmt::format(" in {:.1f} s", effort.elapsed);
  if (effort.elapsed > 0) facts.back() += fmt::format(" ({:.2g}x)", effort.length / effort.elapsed);
  if (effort.bytesWritten) facts.push_back(formatByteCount(*effort.bytesWritten));
  if (const std::string share = shareText(effort); !share.empty())
    facts.push_back(share + " of the source");
  const std::string kept = effort.kept.empty() ? "" : "; it has " + effort.kept;
  return fmt::format("{}{}", fmt::join(facts, ", "), kept);
}
