#include <kestrel/LMFFMedia.h>
#include <kestrel/LMFFMediaStream.h>
#include <kestrel/LMFFMovie.h>
#include <kestrel/LMSubtitleSource.h>

#include <algorithm>
#include <utility>

#include "media/LMFFMovieState.h"
#include "media/SubtitleFile.h"
#include "support/FFmpegError.h"
#include "support/FFmpegOwners.h"
#include "support/LibraryLog.h"

namespace kestrel {

namespace {

LMFFMovie::MediaList filtered(const LMFFMovie::MediaList& medias,
                              const LMFFMovie::MediaFilter& filter) {
  LMFFMovie::MediaList list;
  std::ranges::copy_if(medias, std::back_inserter(list), filter);
  return list;
}

std::shared_ptr<LMFFMedia> firstOf(const LMFFMovie::MediaList& medias,
                                   const LMFFMovie::MediaFilter& filter) {
  const auto found = std::ranges::find_if(medias, filter);
  return found == medias.end() ? nullptr : *found;
}

std::shared_ptr<LMFFMedia> lastOf(const LMFFMovie::MediaList& medias) {
  return medias.empty() ? nullptr : medias.back();
}

std::shared_ptr<LMFFMedia> openedMedia(std::shared_ptr<LMMediaSource> source) {
  auto media = std::make_shared<LMFFMedia>();
  media->setSource(std::move(source));
  media->open();
  return media;
}

bool hasAudioIn(const std::shared_ptr<LMFFMedia>& media) { return media->hasAudio(); }

bool hasVideoIn(const std::shared_ptr<LMFFMedia>& media) { return media->hasVideo(); }

}  // namespace

void LMFFMovie::initialize() { quietLibraries(); }

LMFFMovie::LMFFMovie() : state_(std::make_unique<State>(*this)) {
  initialize();
  auto queue = std::make_shared<OperationQueue>();
  queue->setMaxConcurrentOperationCount(1);
  setDecodeQueue(std::move(queue));
  setVideoEffectStream(std::make_shared<LMFFEffectVideoStream>());
}

LMFFMovie::~LMFFMovie() {
  pause();
  setDecodeQueue(nullptr);
  close();
  setVideoEffectStream(nullptr);
}

void LMFFMovie::openMedias(const MediaList& medias) {
  for (const auto& media : medias) {
    if (!media) continue;
    media->setMovie(this);
    media->open();
  }
  setMedias(medias);
  getMaxMediaDuration();
  openAudioOutput();
  configVideoEffectStream();
}

void LMFFMovie::close() {
  pause();
  flushOperation();  // what it does needs the medias
  setMedias({});
  if (const auto graph = audioOutputGraph()) graph->setDelegate(nullptr);
  setAudioOutputGraph(nullptr);
  setSubtitle(nullptr);
}

bool LMFFMovie::openSubtitle(const std::string& path) {
  setSubtitle(nullptr);
  auto media = openedMedia(recodedSubtitleFile(path));
  if (!media->hasSubtitle()) media = openedMedia(LMSubtitleSource::mediaWithPath(path));
  if (media->hasSubtitle()) {
    state_->subtitleError.set({});
    setSubtitle(std::move(media));
    return true;
  }
  const Error error = media->source()->lastError();
  state_->subtitleError.set(error ? error
                                  : engineError(AVERROR(EINVAL), "there are no subtitles in it"));
  return false;
}

Error LMFFMovie::lastError() const {
  MediaList list = medias();
  list.push_back(subtitle());
  for (const auto& media : list) {
    const auto source = media ? media->source() : nullptr;
    if (const Error error = source ? source->lastError() : Error{}) return error;
  }
  return state_->subtitleError.get();
}

void LMFFMovie::getMaxMediaDuration() {
  int64_t end = 0;
  for (const auto& media : medias())
    end = std::max(end, media->movie_position() + media->duration());
  state_->duration = end;
}

void LMFFMovie::openAudioOutput() {
  if (audioOutputGraph()) return;
  auto graph = std::make_shared<LMOutputAudioGraph>();
  graph->setDelegate(state_.get());
  setAudioOutputGraph(std::move(graph));
}

void LMFFMovie::configVideoEffectStream() {
  const auto list = videos();
  const auto media = list.empty() ? nullptr : list.front();
  const auto stream = videoEffectStream();
  LMFFVideoFormat format = media ? media->videoFormat() : LMFFVideoFormat{};
  format.pix_fmt = AV_PIX_FMT_RGBA;
  stream->setMedia(media);
  stream->setOutputFormat(format);
  stream->setCropRect(
      {{0, 0}, {static_cast<double>(format.width), static_cast<double>(format.height)}});
  stream->updateConverter();
}

LMFFAudioFormat LMFFMovie::defaultOutputFormat() const { return lm_get_default_audio_format(); }

void LMFFMovie::configOutputFormat(const LMFFAudioFormat& /*format*/) {}

LMFFMovie::MediaList LMFFMovie::medias() const { return state_->medias.get(); }

void LMFFMovie::setMedias(MediaList medias) {
  std::erase(medias, nullptr);
  for (const auto& media : state_->medias.get())
    if (media->movie() == this && !std::ranges::count(medias, media)) media->setMovie(nullptr);
  state_->medias.set(std::move(medias));
}

std::shared_ptr<LMFFMedia> LMFFMovie::subtitle() const { return state_->subtitle.get(); }

void LMFFMovie::setSubtitle(std::shared_ptr<LMFFMedia> subtitle) {
  state_->subtitle.set(std::move(subtitle));
}

std::shared_ptr<LMFFEffectVideoStream> LMFFMovie::videoEffectStream() const {
  return state_->videoEffectStream.get();
}

void LMFFMovie::setVideoEffectStream(std::shared_ptr<LMFFEffectVideoStream> stream) {
  state_->videoEffectStream.set(std::move(stream));
}

std::shared_ptr<LMOutputAudioGraph> LMFFMovie::audioOutputGraph() const {
  return state_->audioOutputGraph.get();
}

void LMFFMovie::setAudioOutputGraph(std::shared_ptr<LMOutputAudioGraph> graph) {
  state_->audioOutputGraph.set(std::move(graph));
}

std::shared_ptr<OperationQueue> LMFFMovie::decodeQueue() const { return state_->decodeQueue.get(); }

void LMFFMovie::setDecodeQueue(std::shared_ptr<OperationQueue> queue) {
  const auto old = decodeQueue();
  state_->decodeQueue.set(std::move(queue));
  if (old && !old->isCurrentQueue()) old->waitUntilAllOperationsAreFinished();
}

std::shared_ptr<LMFFMovieImageProvider> LMFFMovie::delegate() const {
  return state_->delegate.get().lock();
}

void LMFFMovie::setDelegate(const std::shared_ptr<LMFFMovieImageProvider>& delegate) {
  state_->delegate.set(delegate);
}

double LMFFMovie::volume() const { return state_->volume; }

void LMFFMovie::setVolume(double volume) { state_->volume = volume; }

bool LMFFMovie::disableVideo() const { return state_->disableVideo; }

void LMFFMovie::setDisableVideo(bool disable) { state_->disableVideo = disable; }

bool LMFFMovie::exportMovie() const { return state_->exportMovie; }

void LMFFMovie::setExportMovie(bool exportMovie) { state_->exportMovie = exportMovie; }

bool LMFFMovie::copy_video_stream() const { return state_->copy_video_stream; }

void LMFFMovie::setCopy_video_stream(bool copy) { state_->copy_video_stream = copy; }

bool LMFFMovie::copy_audio_stream() const { return state_->copy_audio_stream; }

void LMFFMovie::setCopy_audio_stream(bool copy) { state_->copy_audio_stream = copy; }

LMFFMovie::MediaList LMFFMovie::medias(const MediaList& medias, const MediaFilter& filter) const {
  return filtered(medias, filter);
}

LMFFMovie::MediaList LMFFMovie::filterMedias(const MediaFilter& filter) const {
  return filtered(medias(), filter);
}

LMFFMovie::MediaList LMFFMovie::audios() const { return filterMedias(hasAudioIn); }

LMFFMovie::MediaList LMFFMovie::videos() const { return filterMedias(hasVideoIn); }

// These two are asked for every packet: they make no copy of the list.

std::shared_ptr<LMFFMedia> LMFFMovie::currentVideoMedia() const {
  return state_->medias.with([](const MediaList& medias) {
    return firstOf(medias,
                   [](const auto& media) { return media->isCurrentSynced() && media->hasVideo(); });
  });
}

std::shared_ptr<LMFFMedia> LMFFMovie::currentAudioMedia() const {
  return state_->medias.with([](const MediaList& medias) {
    return firstOf(medias,
                   [](const auto& media) { return media->isCurrentSynced() && media->hasAudio(); });
  });
}

std::shared_ptr<LMFFMedia> LMFFMovie::videoMediaAtTime(int64_t time) const {
  return firstOf(medias(), [time](const auto& media) {
    const int64_t start = media->movie_position();
    return start <= time && time < start + media->duration() && media->hasVideo();
  });
}

std::shared_ptr<LMFFMedia> LMFFMovie::videoMedia() const {
  const auto stream = videoEffectStream();
  return stream ? stream->media() : nullptr;
}

bool LMFFMovie::hasAudio() const { return std::ranges::any_of(medias(), hasAudioIn); }

bool LMFFMovie::hasVideo() const { return std::ranges::any_of(medias(), hasVideoIn); }

bool LMFFMovie::hasSubtitle() const {
  return subtitle() ||
         std::ranges::any_of(medias(), [](const auto& media) { return media->hasSubtitle(); });
}

std::vector<std::string> LMFFMovie::audioStreams() const {
  const auto list = medias();
  if (list.empty()) return {};
  auto media = list.front();
  const auto source = media->source();
  if (!(source && source->isDVD()) && !media->hasAudio()) media = firstOf(list, hasAudioIn);
  return media ? media->audioNames() : std::vector<std::string>{};
}

std::vector<std::string> LMFFMovie::subtitleStreams() const {
  const auto list = medias();
  return list.empty() ? std::vector<std::string>{} : list.front()->subtitleNames();
}

std::optional<IndexSet> LMFFMovie::selectAudioStreams() const {
  const auto list = medias();
  return list.empty() ? std::nullopt : list.front()->selectAudios();
}

void LMFFMovie::setSelectAudioStreams(const std::optional<IndexSet>& streams) {
  for (const auto& media : medias()) {
    media->setSelectAudios(streams);
    media->updateSelectStreams();
  }
}

std::optional<IndexSet> LMFFMovie::selectSubtitleStreams() const {
  const auto list = medias();
  return list.empty() ? std::nullopt : list.front()->selectSubtitles();
}

void LMFFMovie::setSelectSubtitleStreams(const std::optional<IndexSet>& streams) {
  for (const auto& media : medias()) {
    media->setSelectSubtitles(streams);
    media->updateSelectStreams();
  }
}

float LMFFMovie::framerate() const {
  const auto media = videoMedia();
  return media ? media->framerate() : 0;
}

int64_t LMFFMovie::videoBitrate() const {
  const auto media = videoMedia();
  return media ? media->videoBitrate() : 0;
}

int64_t LMFFMovie::audioBitrate() const {
  const auto media = lastOf(audios());
  return media ? media->audioBitrate() : 0;
}

int64_t LMFFMovie::fileBitrate() const {
  const auto media = lastOf(medias());
  return media ? media->fileBitrate() : 0;
}

int LMFFMovie::videoCodec() const {
  const auto media = lastOf(videos());
  return media ? media->videoStream()->get_codec_id() : AV_CODEC_ID_NONE;
}

int LMFFMovie::audioCodec() const {
  const auto media = lastOf(audios());
  return media ? media->audioStream()->get_codec_id() : AV_CODEC_ID_NONE;
}

int64_t LMFFMovie::duration() const { return state_->duration; }

}  // namespace kestrel
