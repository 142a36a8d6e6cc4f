#include "convert/probe/StreamsLeftOut.h"

#include <fmt/format.h>

#include <vector>

#include "convert/probe/Streams.h"
#include "support/Containers.h"
#include "support/Pipes.h"

extern "C" {
#include <libavformat/avformat.h>
}

namespace kestrel {

namespace {

size_t& counterOf(StreamsLeftOut& counters, const AVStream& stream) {
  if (stream.disposition & AV_DISPOSITION_ATTACHED_PIC) return counters.covers;
  switch (stream.codecpar->codec_type) {
    case AVMEDIA_TYPE_VIDEO:
      return counters.pictures;
    case AVMEDIA_TYPE_AUDIO:
      return counters.sounds;
    case AVMEDIA_TYPE_SUBTITLE:
      return counters.subtitles;
    case AVMEDIA_TYPE_ATTACHMENT:
      return counters.attachments;
    default:
      return counters.others;
  }
}

}  // namespace

bool isService(const AVStream& stream) {
  return stream.codecpar->codec_type == AVMEDIA_TYPE_DATA &&
         (stream.discard == AVDISCARD_ALL || stream.codecpar->codec_id == AV_CODEC_ID_DVD_NAV);
}

std::string counted(size_t count, const char* what) {
  return count == 0 ? "" : fmt::format("{} {}{}", count, what, count == 1 ? "" : "s");
}

std::string StreamsLeftOut::listed() const {
  std::vector<std::string> words{
      counted(pictures, "video track"),     counted(sounds, "sound track"),
      counted(subtitles, "subtitle track"), counted(covers, "cover"),
      counted(attachments, "attachment"),   counted(chapters, "chapter"),
      counted(others, "other track")};
  std::erase(words, "");
  return fmt::format("{}", fmt::join(words, ", "));
}

StreamsLeftOut streamsLeftOut(const AVFormatContext& input, const IndexSet& taken) {
  StreamsLeftOut counters;
  for (uint32_t i = 0; i < input.nb_streams; ++i)
    if (!isService(*input.streams[i]) && !taken.contains(i))
      ++counterOf(counters, *input.streams[i]);
  return counters;
}

std::string lostTurn(const AVStream& stream, const AVOutputFormat& container) {
  if (isMpeg4(container) || orientationOf(stream) == Orientation{}) return "";
  return fmt::format("the turn of its pictures, which {} cannot hold; encoding sets them upright",
                     container.name);
}

std::string leftOutOf(const std::string& path, const std::string& what) {
  return fmt::format("left out of {}: {}", shownName(path), what);
}

std::string lostIn(const std::string& path, const std::string& stream, const std::string& what) {
  return fmt::format("lost in {} of {}: {}", stream, shownName(path), what);
}

}  // namespace kestrel
