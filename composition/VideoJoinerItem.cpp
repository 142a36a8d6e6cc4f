#include <kestrel/KeyedArchiver.h>
#include <kestrel/KeyedUnarchiver.h>
#include <kestrel/VideoJoinerItem.h>

#include "support/Guarded.h"

namespace kestrel {

namespace {

constexpr char kClassName[] = "VideoJoinerItem";
constexpr char kPath[] = "path";
constexpr char kPosition[] = "position";
constexpr char kRate[] = "rate";

[[maybe_unused]] const bool kIsKnown =
    (registerCodingClass(kClassName, VideoJoinerItem::initWithCoder), true);

}  // namespace

struct VideoJoinerItem::State {
  Guarded<std::string> path;
  double position = 0;
  double rate = 0;
};

VideoJoinerItem::VideoJoinerItem() : state_(std::make_unique<State>()) {}

VideoJoinerItem::~VideoJoinerItem() = default;

std::string VideoJoinerItem::path() const { return state_->path.get(); }
void VideoJoinerItem::setPath(const std::string& path) { state_->path.set(path); }
double VideoJoinerItem::position() const { return state_->position; }
void VideoJoinerItem::setPosition(double seconds) { state_->position = seconds; }
double VideoJoinerItem::rate() const { return state_->rate; }
void VideoJoinerItem::setRate(double rate) { state_->rate = rate; }

std::string VideoJoinerItem::codingName() const { return kClassName; }

void VideoJoinerItem::encodeWithCoder(KeyedArchiver& archiver) const {
  archiver.encodeObject(path(), kPath);
  archiver.encodeDouble(position(), kPosition);
  archiver.encodeDouble(rate(), kRate);
}

std::shared_ptr<VideoJoinerItem> VideoJoinerItem::initWithCoder(KeyedUnarchiver& unarchiver) {
  auto item = std::make_shared<VideoJoinerItem>();
  item->setPath(unarchiver.decodeObjectForKey(kPath).text().value_or(""));
  item->setPosition(unarchiver.decodeDoubleForKey(kPosition));
  item->setRate(unarchiver.decodeDoubleForKey(kRate));
  return item;
}

}  // namespace kestrel
