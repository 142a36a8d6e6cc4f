#include "support/Chapters.h"

extern "C" {
#include <libavutil/mem.h>
}

namespace kestrel {

AVChapter* addChapter(AVFormatContext& context, int64_t start, int64_t end) {
  const auto count = static_cast<size_t>(context.nb_chapters);
  void* list = av_realloc_array(context.chapters, count + 1, sizeof(AVChapter*));
  if (!list) return nullptr;
  context.chapters = static_cast<AVChapter**>(list);
  auto* chapter = static_cast<AVChapter*>(av_mallocz(sizeof(AVChapter)));
  if (!chapter) return nullptr;
  chapter->id = static_cast<int64_t>(count) + 1;
  chapter->time_base = kMicroseconds;
  chapter->start = start;
  chapter->end = end;
  context.chapters[context.nb_chapters++] = chapter;
  return chapter;
}

}  // namespace kestrel
