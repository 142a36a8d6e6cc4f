#pragma once

#include <set>
#include <string_view>

namespace kestrel {

/// Whether an encoder makes a key picture of each one that is marked, and of no other for its sake.
/// Others are left alone: they put key pictures at distances that are counted in pictures.
inline bool takesKeyOrders(std::string_view encoder) {
  static const std::set<std::string_view> kEncoders{"libx264", "libx264rgb", "libx265",
                                                    "libvpx",  "libvpx-vp9", "mpeg4"};
  return kEncoders.contains(encoder);
}

}  // namespace kestrel
