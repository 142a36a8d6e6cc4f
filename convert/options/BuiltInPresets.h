#pragma once

#include <string_view>
#include <utility>

namespace kestrel {

/// The presets that come with the library: names, and texts as files have them.
inline constexpr std::pair<std::string_view, std::string_view> kBuiltInPresets[] = {
    {"web-1080p", R"({
      "description": "for web pages: plays in every browser, up to 1920x1080",
      "ext": "mp4", "video-codec": "h264", "size": "1080p", "no-upscale": true, "max-fps": "60",
      "quality": 60, "compatible": true, "keyframes": 4,
      "audio-codec": "aac", "audio-bitrate": "160k", "channels": "stereo"})"},
    {"web-720p", R"({
      "description": "the same up to 1280x720, for slower lines",
      "ext": "mp4", "video-codec": "h264", "size": "720p", "no-upscale": true, "max-fps": "30",
      "quality": 57, "compatible": true, "keyframes": 4,
      "audio-codec": "aac", "audio-bitrate": "128k", "channels": "stereo"})"},
    {"phone", R"({
      "description": "small and quick to decode, up to 1280x720",
      "ext": "mp4", "video-codec": "h264", "size": "720p", "no-upscale": true, "max-fps": "30",
      "quality": 55, "compatible": true,
      "audio-codec": "aac", "audio-bitrate": "128k", "channels": "stereo"})"},
    {"television", R"({
      "description": "for televisions and their boxes: up to 1920x1080, sound as it is mixed",
      "ext": "mp4", "video-codec": "h264", "size": "1080p", "no-upscale": true, "max-fps": "60",
      "quality": 64, "depth": 8, "chroma": "420", "keyframes": 2, "deinterlace": "auto",
      "audio-codec": "aac"})"},
    {"archive", R"({
      "description": "nothing is lost: FFV1 and FLAC with checksums, every stream kept",
      "ext": "mkv", "video-codec": "ffv1", "keyframes": 0, "deinterlace": "off",
      "video-option": ["level=3", "slices=12", "slicecrc=1"], "audio-codec": "flac"})"},
    {"editing", R"({
      "description": "for editing programs: ProRes, each picture by itself, and PCM",
      "ext": "mov", "video-codec": "prores_ks", "video-option": ["profile=hq"],
      "audio-codec": "pcm_s24le"})"},
    {"disc-rip", R"({
      "description": "a disc's main title, or a file, with all sound as it is, subtitles, chapters",
      "ext": "mkv", "title": "main", "video-codec": "h264", "quality": 66, "deinterlace": "auto",
      "audio-copy": "all"})"},
    {"chat-10mb", R"({
      "description": "a file of 10 million bytes at most, for chats and mails",
      "ext": "mp4", "video-codec": "h264", "size": "720p", "no-upscale": true, "max-fps": "30",
      "size-limit": "10M", "compatible": true,
      "audio-codec": "aac", "audio-bitrate": "96k", "channels": "stereo"})"},
    {"chat-25mb", R"({
      "description": "a file of 25 million bytes at most, for chats and mails",
      "ext": "mp4", "video-codec": "h264", "size": "720p", "no-upscale": true, "max-fps": "30",
      "size-limit": "25M", "compatible": true,
      "audio-codec": "aac", "audio-bitrate": "128k", "channels": "stereo"})"},
    {"podcast", R"({
      "description": "the sound alone as MP3, for feeds and players of all kinds",
      "ext": "mp3", "video-codec": "none", "audio-codec": "mp3", "audio-bitrate": "128k",
      "sample-rate": 44100, "channels": "stereo"})"},
    {"gif", R"({
      "description": "a moving picture for pages that take nothing else: small, without sound",
      "ext": "gif", "size": "480x-", "no-upscale": true, "max-fps": "15",
      "audio-codec": "none"})"},
};

}  // namespace kestrel
