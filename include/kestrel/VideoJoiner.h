#pragma once

#include <kestrel/Coding.h>
#include <kestrel/Export.h>

#include <memory>
#include <string>
#include <vector>

namespace kestrel {

class VideoJoinerItem;

/// Describes files to be joined into one and lets a helper program join them: the joiner is stored
/// in a temporary archive that "QTMovieHelperTask" reads.
///
/// `path` and `tracks` may be read by one thread while another sets them.
class KESTREL_API VideoJoiner : public Coding {
 public:
  using ItemList = std::vector<std::shared_ptr<VideoJoinerItem>>;

  VideoJoiner();
  ~VideoJoiner() override;
  VideoJoiner(const VideoJoiner&) = delete;
  VideoJoiner& operator=(const VideoJoiner&) = delete;

  /// The joiner stored in a file; if there is none, returns null and logs the reason.
  static std::shared_ptr<VideoJoiner> joinerWithPath(const std::string& path);

  /// The file to be written.
  std::string path() const;
  void setPath(const std::string& path);

  /// The inputs in order. An empty list is stored as no value.
  ItemList tracks() const;
  void setTracks(ItemList tracks);  ///< drops null pointers

  /// Appends an input that starts at `position` (seconds) and plays at `rate`.
  void join(const std::string& input, double position, double rate);

  /// A new name for an archive in a private folder below the temporary directory, which this
  /// creates; "" if that fails.
  std::string tempFilePath() const;

  /// Runs the helper and blocks until it has exited. Errors are only logged: check whether the file
  /// at `path` exists.
  void exportMovie() const;

  std::string codingName() const override;
  void encodeWithCoder(KeyedArchiver& archiver) const override;
  static std::shared_ptr<VideoJoiner> initWithCoder(KeyedUnarchiver& unarchiver);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace kestrel
