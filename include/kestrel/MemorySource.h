#pragma once

#include <kestrel/Export.h>
#include <kestrel/LMCustomSource.h>

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

namespace kestrel {

/// A source over bytes in memory.
///
/// Copies share the bytes, which must not change while any of them exists. `setFullpath` sets a
/// name; its extension helps to detect formats that their bytes alone do not identify.
class KESTREL_API MemorySource : public LMCustomSource {
 public:
  using Bytes = std::shared_ptr<const std::vector<uint8_t>>;

  /// Null counts as empty.
  explicit MemorySource(Bytes bytes);

  /// A source over a copy of `text`.
  static std::shared_ptr<MemorySource> fromText(std::string_view text);

  const Bytes& bytes() const { return bytes_; }

  std::shared_ptr<LMMediaSource> copy() const override;
  int64_t filesize() const override;
  int32_t read(uint8_t* buffer, int32_t size) override;

 private:
  const Bytes bytes_;
};

}  // namespace kestrel
