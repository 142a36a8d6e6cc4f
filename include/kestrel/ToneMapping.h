#pragma once

#include <kestrel/Export.h>
#include <kestrel/Image.h>

#include <cstdint>
#include <memory>

namespace kestrel {

/// How the samples of HDR pictures stand for light.
struct HdrLight {
  /// The curve from samples to light, of ITU-R BT.2100.
  enum class Transfer {
    kPq,   ///< up to 10000 candelas per square metre, as the numbers say
    kHlg,  ///< its system gamma included; of graphics as on a display of 1000
  };
  /// The lights that red, green and blue stand for; white is D65 in all of them.
  enum class Primaries { kRec2020, kDisplayP3, kRec709 };

  Transfer transfer = Transfer::kPq;
  Primaries primaries = Primaries::kRec2020;
  /// The brightest light in the pictures, candelas per square metre, as content or mastering
  /// display have it; no less than that of graphics counts. With HLG it has no meaning.
  double peak = 1000;

  bool operator==(const HdrLight&) const = default;
};

/// How bright white text and graphics, and the white of SDR pictures, are in HDR: candelas per
/// square metre, as ITU-R BT.2408 recommends.
inline constexpr double kGraphicsWhite = 203;

/// An HDR picture in SDR: BT.709 for displays of BT.1886, black for no light and white for
/// `kGraphicsWhite`.
///
/// What is brighter is compressed as in ITU-R BT.2390: light below a knee stays as it is, the
/// brightest becomes white; HLG is first shown as on a display of 400, by its system gamma. Colours
/// that BT.709 lacks lose chroma but keep hue and intensity, and those close to its border make
/// room for them. Samples are looked up in a table that the process keeps, with a mean error below
/// one step of 8 bits. Null for null.
KESTREL_API std::shared_ptr<const Image> toneMapped(const std::shared_ptr<const Image>& picture,
                                                    const HdrLight& light);

/// The opposite, for what is drawn over HDR pictures: `graphics`, which is in SDR, in the samples
/// of such pictures, its white at `kGraphicsWhite`. Null for null.
KESTREL_API std::shared_ptr<const Image> onHdr(const std::shared_ptr<const Image>& graphics,
                                               const HdrLight& light);

}  // namespace kestrel
