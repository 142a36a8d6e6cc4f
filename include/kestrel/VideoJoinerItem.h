#pragma once

#include <kestrel/Coding.h>
#include <kestrel/Export.h>

#include <memory>
#include <string>

namespace kestrel {

/// An input of a `VideoJoiner`: a file, its position in the output (seconds) and its playback rate,
/// all stored in archives. Use from one thread at a time, except for `path`, which one thread may
/// read while another sets it.
class KESTREL_API VideoJoinerItem : public Coding {
 public:
  VideoJoinerItem();
  ~VideoJoinerItem() override;
  VideoJoinerItem(const VideoJoinerItem&) = delete;
  VideoJoinerItem& operator=(const VideoJoinerItem&) = delete;

  std::string path() const;
  void setPath(const std::string& path);
  double position() const;
  void setPosition(double seconds);
  double rate() const;
  void setRate(double rate);

  std::string codingName() const override;
  void encodeWithCoder(KeyedArchiver& archiver) const override;
  static std::shared_ptr<VideoJoinerItem> initWithCoder(KeyedUnarchiver& unarchiver);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace kestrel
