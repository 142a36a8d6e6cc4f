// What a source becomes, which a source itself need not know.

#include <kestrel/LMFFMedia.h>
#include <kestrel/LMFFMediaStream.h>
#include <kestrel/LMMediaSource.h>

namespace kestrel {

namespace {

IndexSet indexesWhere(const LMFFMedia& media, bool (LMFFMediaStream::*isWanted)() const) {
  IndexSet indexes;
  const auto streams = media.streams();
  for (uint32_t i = 0; i < streams.size(); ++i)
    if (streams[i]->enable() && ((*streams[i]).*isWanted)()) indexes.insert(i);
  return indexes;
}

}  // namespace

std::vector<std::shared_ptr<LMFFMedia>> LMMediaSource::createMediasWithStreams(
    const std::optional<IndexSet>& streams) {
  auto media = std::make_shared<LMFFMedia>();
  media->setSource(shared_from_this());
  media->setSelectStreams(streams);
  media->open();

  const IndexSet videos = indexesWhere(*media, &LMFFMediaStream::isVideo);
  const IndexSet audios = indexesWhere(*media, &LMFFMediaStream::isAudio);
  if (videos.empty() && audios.empty()) return {};

  std::vector<std::shared_ptr<LMFFMedia>> medias{media};
  IndexSet own = videos.empty() ? audios : videos;
  if (!videos.empty() && !audios.empty()) {
    auto audioMedia = media->copy();
    audioMedia->setSelectStreams(audios);
    if (isSeekable()) audioMedia->open();
    if (audioMedia->isOpen())
      medias.push_back(audioMedia);
    else  // the bytes come once: one reader has to do for both
      own.insert(audios.begin(), audios.end());
  }
  media->setSelectStreams(own);
  media->updateSelectStreams();
  return medias;
}

std::vector<std::shared_ptr<LMFFMedia>> LMMediaSource::createMedias() {
  return createMediasWithStreams(std::nullopt);
}

}  // namespace kestrel
