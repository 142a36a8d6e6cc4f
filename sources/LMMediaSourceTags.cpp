#include <kestrel/LMFFFormat.h>
#include <kestrel/LMMediaSource.h>
#include <kestrel/Log.h>

#include <fmt/format.h>

#include "support/FFmpegOwners.h"

namespace kestrel {

namespace {

/// A codec tag's four bytes, lowest first.
std::string tagCharacters(uint32_t tag) {
  std::string characters;
  for (int shift = 0; shift < 32; shift += 8)
    characters.push_back(static_cast<char>(tag >> shift & 0xFF));
  return characters;
}

}  // namespace

std::vector<std::string> LMMediaSource::codecs() const {
  std::vector<std::string> tags;
  const auto context = sharedContext();
  for (unsigned i = 0; context && i < context->nb_streams; ++i)
    tags.push_back(tagCharacters(context->streams[i]->codecpar->codec_tag));
  return tags;
}

void LMMediaSource::logMedadata(const AVDictionary* dictionary) const {
  if (!dictionary) return;
  log(fmt::format("{}", av_dict_count(dictionary)));
  const AVDictionaryEntry* entry = nullptr;
  while ((entry = av_dict_get(dictionary, "", entry, AV_DICT_IGNORE_SUFFIX)))
    log(fmt::format("{} {}", entry->key, entry->value));
}

void LMMediaSource::logFormatContext(const AVFormatContext* context) const {
  if (!context) return;
  logMedadata(context->metadata);
  for (unsigned i = 0; i < context->nb_streams; ++i) {
    const AVStream* stream = context->streams[i];
    logMedadata(stream->metadata);
    // The tag is text up to its first NUL, right-aligned to four characters.
    log(fmt::format("{:>4}", tagCharacters(stream->codecpar->codec_tag).c_str()));
  }
}

void LMMediaSource::print_source_stream_info() {
  open();
  const auto context = sharedContext();
  if (!context) return;
  lm_ff_dump_av_dict(context->metadata);
  for (unsigned i = 0; i < context->nb_streams; ++i) {
    log(fmt::format("stream:{}", i));
    lm_ff_dump_av_dict(context->streams[i]->metadata);
  }
}

}  // namespace kestrel
