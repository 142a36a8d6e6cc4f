#pragma once

#include <kestrel/Coding.h>
#include <kestrel/Export.h>

#include <memory>
#include <string>
#include <vector>

namespace kestrel {

class VideoJoinerItem;

/// Describes how files are to be joined into one, and has a helper program do it: the joiner goes
/// into a temporary archive, which "QTMovieHelperTask" reads back.
///
/// `path` and `tracks` may be read by one thread while another sets them.
class KESTREL_API VideoJoiner : public Coding {
 public:
  using ItemList = std::vector<std::shared_ptr<VideoJoinerItem>>;

  VideoJoiner();
  ~VideoJoiner() override;
  VideoJoiner(const VideoJoiner&) = delete;
  VideoJoiner& operator=(const VideoJoiner&) = delete;

  /// The joiner stored in a file; null, and a line in the log, when there is none.
  static std::shared_ptr<VideoJoiner> joinerWithPath(const std::string& path);

  /// The file to be written.
  std::string path() const;
  void setPath(const std::string& path);

  /// The inputs in the order of their insertion. An empty list is stored as nothing.
  ItemList tracks() const;
  void setTracks(ItemList tracks);  ///< null ones are left out

  /// Appends an input that starts at `position` (seconds).
  void join(const std::string& input, double position, double rate);

  /// A new name for an archive, in a folder of the temporary directory that this makes, and that
  /// only this user may enter; "" where there is no such place.
  std::string tempFilePath() const;

  /// Has the helper write the file and blocks until it has exited. Nothing is reported but in the
  /// log: whether there is a file at `path` tells how it went.
  void exportMovie() const;

  std::string codingName() const override;
  void encodeWithCoder(KeyedArchiver& archiver) const override;
  static std::shared_ptr<VideoJoiner> initWithCoder(KeyedUnarchiver& unarchiver);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace kestrel
