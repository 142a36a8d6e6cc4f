#pragma once

#include <kestrel/Image.h>
#include <kestrel/LMFFAudioResample.h>
#include <kestrel/LMFFImage.h>
#include <kestrel/LMFFMediaStream.h>

#include <algorithm>
#include <atomic>
#include <deque>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "media/StreamDecoder.h"
#include "media/StreamTexts.h"
#include "media/StreamTime.h"
#include "media/SubtitleHistory.h"
#include "support/FFmpegCompat.h"
#include "support/Guarded.h"

namespace kestrel {

struct LMFFMediaStream::State {
  LMFFMedia* media = nullptr;
  std::shared_ptr<AVFormatContext> container;  // which `stream` belongs to, where that is known
  AVStream* stream = nullptr;
  StreamDecoder decoder;
  FramePtr currentFrame = makeFrame();
  bool enable = false;
  bool isCopied = false;     // by itself, whatever the movie says
  bool keepsGroups = false;  // of copied pictures
  bool hasFrame = false;
  bool isFlushed = false;             // the resampler has given what it held at the input's end
  int64_t soundEnd = AV_NOPTS_VALUE;  // where the last decoded audio frame ends, in the time base
  int64_t audio_sync_frame = 0;
  Guarded<std::shared_ptr<const Image>> subtitle;
  Guarded<std::shared_ptr<const Image>> wholeSubtitle;
  SubtitleHistory earlierSubtitles;
  Guarded<std::optional<std::string>> subtitleString;
  StreamTexts texts;
  Guarded<std::shared_ptr<LMFFAudioResample>> resample;
  Guarded<std::deque<std::shared_ptr<LMFFImage>>> rawPackets;
  std::atomic<bool> hasPacket{false};  // whether that is empty, asked for every packet read

  void store(FramePtr frame) {
    currentFrame = std::move(frame);
    hasFrame = true;
  }

  void queue(const AVPacket* packet, Rational timebase, bool isPicture) {
    auto item = LMFFImage::imageWithPacket(packet);
    item->setTime_base(timebase);
    rawPackets.with([&](auto& packets) {
      if (isPicture && !keepsGroups) packets.clear();
      if (isPicture && item->isKeyPacket()) {
        const auto key = std::find_if(packets.rbegin(), packets.rend(),
                                      [](const auto& each) { return each->isKeyPacket(); });
        if (key != packets.rend()) packets.erase(packets.begin(), std::prev(key.base()));
      }
      packets.push_back(std::move(item));
      hasPacket = true;
    });
  }

  bool storeSound(const LMFFMediaStream& self, FramePtr frame);
  bool decodeSound(const LMFFMediaStream& self);
  bool decodeSubtitle(const LMFFMediaStream& self, const AVPacket* packet);
  SubtitleSpan subtitleSpan() const { return {currentFrame->pts, frameDuration(*currentFrame)}; }
  void keepSubtitle(const LMFFMediaStream& self);
};

}  // namespace kestrel
