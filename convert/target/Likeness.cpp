#include "convert/target/Likeness.h"

#include "convert/compare/PairScorer.h"
#include "convert/compare/PicturePairs.h"

namespace kestrel {

std::vector<LikenessAt> likeness(Pictures& original, Pictures& copy, const LikenessSpan& span,
                                 const std::function<void(int64_t)>& told) {
  original.setOutputSize(copy.size());
  const auto scorer = makeScorer(PictureMetric::kSsimulacra2, original, copy);
  if (span.start > 0) original.pictureAt(span.start);
  if (span.copyStart > 0) copy.pictureAt(span.copyStart);
  PicturePairs pairs(original, copy, span.copyStart - span.start);
  std::vector<LikenessAt> found;
  for (int64_t i = 0; const auto pair = pairs.next(); ++i) {
    const int64_t time = pair->original.start;
    if (span.end && time >= *span.end) break;
    if (i % span.every == 0) found.push_back({time, scorer->score(*pair)});
    if (told) told(time);
  }
  return found;
}

}  // namespace kestrel
