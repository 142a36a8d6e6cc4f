#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kestrel {

/// A picture in small, by which scenes are told apart.
struct SmallPicture {
  static constexpr int kWidth = 32;
  static constexpr int kHeight = 18;

  int64_t time = 0;           ///< microseconds
  std::vector<uint8_t> luma;  ///< full range, row by row
};

/// Finds where one scene becomes another: by a cut, or by a dissolve or fade, which counts where
/// its middle is.
///
/// A cut is a picture that no motion of a few pixels makes of the one before, while its neighbours
/// follow each other; a flash is none, for behind it the old scene goes on. In a dissolve pictures
/// are means of what was and what will be. Black between two scenes is one boundary.
class SceneFinder {
 public:
  /// Pictures in order of time.
  void add(SmallPicture picture);

  /// The first pictures of scenes behind the first one, once all pictures were added;
  /// microseconds.
  std::vector<int64_t> boundaries() const;

 private:
  struct Looked {
    SmallPicture picture;
    double change = 0;  ///< from the picture before, levels of 255
    double spread = 0;  ///< of its luma: next to none where it is of one colour
    double mean = 0;
  };

  struct Boundary {
    size_t index = 0;  ///< of the first picture of the new scene
    size_t from = 0;   ///< the last one that is all of the old one
    size_t to = 0;     ///< the first one that is all of the new one
    double strength = 0;
  };

  bool isCutAt(size_t index) const;
  bool isFlash(size_t index) const;
  void findGradual(size_t span, std::vector<Boundary>& found) const;
  double gradualStrength(size_t from, size_t to) const;
  bool isPlain(size_t index) const;
  double correlation(size_t one, size_t other) const;
  bool joinsScenes(const Boundary& fade, const std::vector<Boundary>& others) const;

  std::vector<Looked> pictures_;
};

}  // namespace kestrel
