#pragma once

#include <cstdint>
#include <optional>

extern "C" {
#include <libavformat/avformat.h>
}

namespace kestrel {

// Facts about containers that the library does not tell by flags.

// Containers that are written.

/// MPEG-4 files and their kin, QuickTime among them: they tell by an edit list what of a track is
/// shown, and how pictures are turned.
bool isMpeg4(const AVOutputFormat& container);

/// Whether a container holds what a decoder must know apart from the packets: each unit of H.264
/// and HEVC follows its length, AAC has no headers. In all others units follow a start code.
bool describesStreams(const AVOutputFormat& container);

/// A playlist of segments, which players of the web fetch one by one.
bool isHls(const AVOutputFormat& container);

bool isAvi(const AVOutputFormat& container);

/// Containers of studios: times count in pictures, and sound has 48000 Hz.
bool isOfStudios(const AVOutputFormat& container);

/// Whether a container's beginning is only known at its end, so that it cannot go down a pipe.
/// MPEG-4 is none of them: it can be written in fragments.
bool goesBack(const AVOutputFormat& container);

/// Has the library write FLAC and TrueHD into MPEG-4, both of which have a standard for it, though
/// the library calls that experimental. Call before the header is written.
void allowLosslessSound(AVFormatContext& output);

/// Whether a container that had no chapters when it was begun still takes some, up to its end.
/// Others write them in their header, and some write that anew at the end, over what is behind it.
bool takesLateChapters(const AVOutputFormat& container);

/// The same of the codec data of lossless sound.
bool takesLateCodecData(const AVOutputFormat& container);

bool isTransportStream(const AVOutputFormat& container);

/// The one for pictures; its kin for sound alone and for the web have names of their own.
bool isMatroska(const AVOutputFormat& container);

bool isCaf(const AVOutputFormat& container);

/// Whether a container tells how short the last frame of TTA is. Others count milliseconds, and
/// decoders make nothing of that frame then.
bool keepsTta(const AVOutputFormat& container);

/// Whether packets lie there one behind the other without a word where each begins.
bool isRowOfPackets(const AVOutputFormat& container);

/// Whether sound is played where it lies in the file, whatever its time stamps are.
bool placesSoundByOrder(const AVOutputFormat& container);

/// Whether pictures may show at any time, not just at multiples of a frame's duration.
bool holdsAnyTime(const AVOutputFormat& container);

/// Whether it holds no more than one track of sound.
bool holdsOneSound(const AVOutputFormat& container);

bool holdsChapters(const AVOutputFormat& container);

/// Whether a container stores a cover: a picture that belongs to the file, beside its streams.
bool holdsCovers(const AVOutputFormat& container);

/// Whether it stores attachments, such as fonts.
bool holdsAttachments(const AVOutputFormat& container);

/// Whether everybody has come to store H.264 and AAC in a container whose muxer still proposes what
/// it was made for.
bool outlivedItsCodecs(const AVOutputFormat& container);

// Containers that are read.

bool isAvi(const AVFormatContext& input);

/// Like `isMpeg4` of containers that are written: these have a length for each track.
bool isMpeg4(const AVFormatContext& input);

/// Whether times come from a clock that may begin anew within a file.
bool isBroadcast(const AVFormatContext& input);

bool isTransportStream(const AVFormatContext& input);

bool isAsf(const AVFormatContext& input);

bool isMp3(const AVFormatContext& input);

bool isRealMedia(const AVFormatContext& input);

/// Picture files, a single one among them.
bool isOfPictureFiles(const AVFormatContext& input);

/// Whether the demuxer may take times at which pictures are decoded for those at which they show.
bool tellsOrderAsTime(const AVFormatContext& input);

/// Whether packets leave out times that their neighbours tell.
bool leavesTimesOut(const AVFormatContext& input);

/// Whether a container tells when it ends, counted from 0, whatever its first time stamp is.
bool tellsEndFromZero(const AVFormatContext& input);

/// Whether the same holds of each stream's tagged or own length.
bool tellsStreamEndsFromZero(const AVFormatContext& input);

/// Whether the container tells that a stream has no packets.
bool isKnownEmpty(const AVStream& stream, const AVFormatContext& input);

/// The end of a stream by its tag, as Matroska files have, microseconds; none without one.
std::optional<int64_t> taggedEnd(const AVStream& stream);

}  // namespace kestrel
