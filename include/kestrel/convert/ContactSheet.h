#pragma once

#include <kestrel/BitmapContext.h>
#include <kestrel/BitmapImage.h>
#include <kestrel/Export.h>
#include <kestrel/Protocols.h>
#include <kestrel/convert/Events.h>
#include <kestrel/convert/LookSettings.h>
#include <kestrel/convert/Report.h>
#include <kestrel/convert/Thumbnail.h>

#include <memory>
#include <optional>
#include <string>

namespace kestrel {

/// Many small pictures on one dark surface, in rows, each with a line of text below it; over them a
/// title and a line of facts.
class KESTREL_API ContactSheet {
 public:
  struct Layout {
    int columns = 1;  ///< at least 1, as all these numbers
    int rows = 1;
    int pictureWidth = 1;  ///< pixels
    int pictureHeight = 1;
    std::string title = {};
    std::string facts = {};
  };

  /// Throws a `Failure` for a number below 1 and for a sheet beyond 32768 pixels a side,
  /// std::bad_alloc without memory.
  explicit ContactSheet(Layout layout);

  /// The width of a picture with which a sheet of so many columns (at least 1) is `sheetWidth`
  /// pixels wide; at least 1.
  static int pictureWidthFor(int columns, int sheetWidth);

  /// Puts a picture into the next place, from left to right, then downwards; beyond the last place
  /// it does nothing.
  void add(const BitmapImage& picture, const std::string& caption);

  const BitmapContext& surface() const { return *surface_; }

 private:
  void drawHeader();

  Layout layout_;
  int gap_ = 0;
  int captionHeight_ = 0;
  int headerHeight_ = 0;
  int count_ = 0;
  std::unique_ptr<BitmapContext> surface_;
};

/// A contact sheet of a movie; `{}` beside the two names means four by five pictures.
struct ContactSheetSettings {
  std::string input = {};           ///< a file, or a disc (a folder or an image)
  std::optional<int> title = {};    ///< of a disc: a number from 1, or `kMainTitle`
  int angle = 1;                    ///< of the title, from 1; above 1 it needs a title
  Protocols protocols = {};         ///< by which the input may be read where it is no file
  std::string output = {};          ///< its name ends in .png, .jpg, .webp or .avif
  bool replaces = false;            ///< an existing target may be replaced
  std::optional<int> quality = {};  ///< of the file, 0 to 100; absent: what is usual. Not of PNG
  LookSettings look = {};
  bool best = false;     ///< from each part of the movie the best picture, by `bestPictureTime`
  PictureBox size = {};  ///< of one picture; by default the sheet is at most 1600 pixels wide
  int columns = 4;       ///< at least 1
  int rows = 5;          ///< at least 1
};

/// Draws pictures from all over a movie, with their times, on a sheet in a file, which appears only
/// when it is whole. Throws `Failure`, also for a movie whose length is not known.
KESTREL_API Report writeContactSheet(const ContactSheetSettings& settings,
                                     const Events& events = {});

}  // namespace kestrel
