#pragma once

#include <kestrel/Export.h>
#include <kestrel/LMCustomSource.h>

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

namespace kestrel {

/// A source over bytes in memory: a file that was read, downloaded or made there.
///
/// Copies share the bytes, which nobody may change while a source is left. `setFullpath` gives the
/// source a name, whose extension helps to recognise formats that their bytes alone don't tell.
class KESTREL_API MemorySource : public LMCustomSource {
 public:
  using Bytes = std::shared_ptr<const std::vector<uint8_t>>;

  /// Null is an empty input.
  explicit MemorySource(Bytes bytes);

  /// A source over a copy of a text's bytes.
  static std::shared_ptr<MemorySource> fromText(std::string_view text);

  const Bytes& bytes() const { return bytes_; }

  std::shared_ptr<LMMediaSource> copy() const override;
  int64_t filesize() const override;
  int32_t read(uint8_t* buffer, int32_t size) override;

 private:
  const Bytes bytes_;
};

}  // namespace kestrel
