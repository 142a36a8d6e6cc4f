#include <kestrel/LMFFImage.h>

#include "support/FFmpegOwners.h"
#include "support/Guarded.h"

#include <utility>

namespace kestrel {

namespace {

/// A packet that refers to the data of `source`; blank for null, and when memory runs out.
std::shared_ptr<AVPacket> referTo(const AVPacket* source) {
  std::shared_ptr<AVPacket> packet = makePacket();
  if (packet && source) av_packet_ref(packet.get(), source);
  return packet;
}

}  // namespace

struct LMFFImage::State {
  std::shared_ptr<AVPacket> packetOrBlank() {
    return packet.with([](auto& own) {
      if (!own) own = referTo(nullptr);
      return own;
    });
  }

  Guarded<Rational> timeBase;
  Guarded<std::shared_ptr<AVPacket>> packet;  // none until somebody asks
  AVFrame* frame = nullptr;
  int64_t timeOffset = 0;
  int64_t displayTime = 0;
  bool isOwned = false;
  bool isPacket = false;
};

LMFFImage::LMFFImage() : state_(std::make_unique<State>()) {}

LMFFImage::~LMFFImage() {
  AVFrame* const frame = std::exchange(state_->frame, nullptr);
  if (state_->isOwned) FramePtr(frame).reset();
}

std::shared_ptr<LMFFImage> LMFFImage::imageWithFrame(AVFrame* frame) {
  return imageWithFrame(frame, false);
}

std::shared_ptr<LMFFImage> LMFFImage::imageWithFrame(AVFrame* frame, bool owned) {
  auto image = std::make_shared<LMFFImage>();
  image->setIsOwned(owned);
  image->setFrame(frame);
  return image;
}

std::shared_ptr<LMFFImage> LMFFImage::imageWithPacket(const AVPacket* packet) {
  auto image = std::make_shared<LMFFImage>();
  image->setIs_packet(true);
  if (packet) {
    image->setIsOwned(true);
    image->setPacket(packet);
  }
  return image;
}

Rational LMFFImage::time_base() const { return state_->timeBase.get(); }

void LMFFImage::setTime_base(Rational time_base) { state_->timeBase.set(time_base); }

int64_t LMFFImage::pkt_time_offset() const { return state_->timeOffset; }

void LMFFImage::setPkt_time_offset(int64_t offset) { state_->timeOffset = offset; }

int64_t LMFFImage::pkt_display_time() const { return state_->displayTime; }

void LMFFImage::setPkt_display_time(int64_t time) { state_->displayTime = time; }

AVFrame* LMFFImage::frame() const { return state_->frame; }

void LMFFImage::setFrame(AVFrame* frame) { state_->frame = frame; }

std::shared_ptr<AVPacket> LMFFImage::packet() const { return state_->packetOrBlank(); }

void LMFFImage::setPacket(const AVPacket* packet) { state_->packet.set(referTo(packet)); }

bool LMFFImage::isOwned() const { return state_->isOwned; }

void LMFFImage::setIsOwned(bool owned) { state_->isOwned = owned; }

bool LMFFImage::is_packet() const { return state_->isPacket; }

void LMFFImage::setIs_packet(bool is_packet) { state_->isPacket = is_packet; }

void LMFFImage::set_movie_real_start_time(int64_t time) { state_->displayTime -= time; }

int64_t LMFFImage::get_pkt_offset_time() const { return state_->displayTime - state_->timeOffset; }

bool LMFFImage::isKeyPacket() const {
  const AVPacket* packet = getPacket();
  return packet && (packet->flags & AV_PKT_FLAG_KEY);
}

bool LMFFImage::isPacket() const { return state_->isPacket; }

AVFrame* LMFFImage::getFrame() const { return state_->frame; }

AVPacket* LMFFImage::getPacket() const {
  return state_->isPacket ? state_->packetOrBlank().get() : nullptr;
}

}  // namespace kestrel
