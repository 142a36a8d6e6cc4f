#pragma once

#include <kestrel/LMFFMedia.h>
#include <kestrel/LMFFMediaStream.h>

#include <memory>
#include <utility>

#include "support/FFmpegOwners.h"

namespace kestrel::test {

/// A media without a file: one stream of pictures of the given size.
class PictureMedia {
 public:
  PictureMedia(int width, int height, AVPixelFormat format = AV_PIX_FMT_YUV420P)
      : container_(avformat_alloc_context()) {
    AVStream* pictures = avformat_new_stream(container_, nullptr);
    pictures->codecpar->codec_type = AVMEDIA_TYPE_VIDEO;
    pictures->codecpar->codec_id = AV_CODEC_ID_RAWVIDEO;
    pictures->codecpar->format = format;
    pictures->codecpar->width = width;
    pictures->codecpar->height = height;
    auto stream = std::make_shared<LMFFMediaStream>();
    stream->setMedia(media_.get());
    stream->setStream(pictures);
    stream->setEnable(true);
    media_->setStreams({std::move(stream)});
  }
  ~PictureMedia() {
    media_->setStreams({});
    avformat_free_context(container_);
  }
  PictureMedia(const PictureMedia&) = delete;
  PictureMedia& operator=(const PictureMedia&) = delete;

  const std::shared_ptr<LMFFMedia>& get() const { return media_; }

 private:
  AVFormatContext* container_;
  std::shared_ptr<LMFFMedia> media_ = std::make_shared<LMFFMedia>();
};

}  // namespace kestrel::test
