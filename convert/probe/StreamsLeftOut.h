#pragma once

#include <kestrel/IndexSet.h>

#include <cstddef>
#include <string>

struct AVFormatContext;
struct AVOutputFormat;
struct AVStream;

namespace kestrel {

/// "1 cover", "3 chapters"; "" for none.
std::string counted(size_t count, const char* what);

/// How many of an input's parts do not go into an output, by the names under which people are told
/// of them.
struct StreamsLeftOut {
  size_t pictures = 0;
  size_t sounds = 0;
  size_t subtitles = 0;
  size_t covers = 0;
  size_t attachments = 0;
  size_t chapters = 0;
  size_t others = 0;

  /// "1 sound track, 2 covers"; "" for nothing.
  std::string listed() const;
};

/// Whether a stream is no loss elsewhere: data that the demuxer has made chapters of, and a disc's
/// navigation.
bool isService(const AVStream& stream);

/// The streams of an input but for those `taken`, by container index, that are a loss elsewhere.
StreamsLeftOut streamsLeftOut(const AVFormatContext& input, const IndexSet& taken);

/// What is said where a container cannot hold how a stream's pictures are turned when they are
/// copied into it; "" where nothing is lost.
std::string lostTurn(const AVStream& stream, const AVOutputFormat& container);

/// A sentence about what of an input is left out.
std::string leftOutOf(const std::string& path, const std::string& what);

/// A sentence about what a stream of an input, which goes along, loses.
std::string lostIn(const std::string& path, const std::string& stream, const std::string& what);

}  // namespace kestrel
