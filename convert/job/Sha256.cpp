#include "convert/job/Sha256.h"

#include <fmt/format.h>

#include <array>

extern "C" {
#include <libavutil/sha.h>
}

namespace kestrel {

namespace {

AVSHA* stateIn(std::vector<uint64_t>& state) { return reinterpret_cast<AVSHA*>(state.data()); }

}  // namespace

Sha256::Sha256() : state_(static_cast<size_t>(av_sha_size) / sizeof(uint64_t) + 1) {
  av_sha_init(stateIn(state_), 256);
}

void Sha256::add(const void* data, size_t size) {
  av_sha_update(stateIn(state_), static_cast<const uint8_t*>(data), size);
}

std::string Sha256::text() {
  std::array<uint8_t, 32> digest{};
  av_sha_final(stateIn(state_), digest.data());
  std::string text;
  for (const uint8_t byte : digest) text += fmt::format("{:02x}", byte);
  return text;
}

}  // namespace kestrel
