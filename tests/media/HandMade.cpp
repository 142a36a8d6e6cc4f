#include "tests/media/HandMade.h"

#include <kestrel/LMFFMovie.h>

#include <cstring>

namespace kestrel::test {

HandMadeContainer::HandMadeContainer() : context_(avformat_alloc_context()) {
  LMFFMovie::initialize();
}

HandMadeContainer::~HandMadeContainer() { avformat_free_context(context_); }

AVStream* HandMadeContainer::addStream(AVMediaType type, AVCodecID codec, AVRational timeBase) {
  AVStream* stream = avformat_new_stream(context_, nullptr);
  stream->codecpar->codec_type = type;
  stream->codecpar->codec_id = codec;
  stream->time_base = timeBase;
  return stream;
}

AVStream* HandMadeContainer::addSound(int sampleRate, int channels) {
  AVStream* stream = addStream(AVMEDIA_TYPE_AUDIO, AV_CODEC_ID_PCM_S16LE, {1, sampleRate});
  stream->codecpar->sample_rate = sampleRate;
  stream->codecpar->format = AV_SAMPLE_FMT_S16;
  av_channel_layout_default(&stream->codecpar->ch_layout, channels);
  return stream;
}

AVStream* HandMadeContainer::addPictures(int width, int height, AVRational timeBase) {
  AVStream* stream = addStream(AVMEDIA_TYPE_VIDEO, AV_CODEC_ID_RAWVIDEO, timeBase);
  stream->codecpar->format = AV_PIX_FMT_YUV420P;
  stream->codecpar->width = width;
  stream->codecpar->height = height;
  return stream;
}

std::unique_ptr<LMFFMediaStream> openedStream(AVStream* stream, LMFFMedia* media) {
  auto opened = std::make_unique<LMFFMediaStream>();
  opened->setMedia(media);
  opened->setStream(stream);
  opened->open();
  opened->setEnable(opened->isOpen());
  return opened;
}

PacketPtr packetOf(const std::vector<uint8_t>& bytes, int64_t pts, int64_t duration) {
  PacketPtr packet = makePacket();
  if (av_new_packet(packet.get(), static_cast<int>(bytes.size())) < 0) return nullptr;
  std::memcpy(packet->data, bytes.data(), bytes.size());
  packet->pts = pts;
  packet->dts = pts;
  packet->duration = duration;
  packet->flags = AV_PKT_FLAG_KEY;
  return packet;
}

PacketPtr packetOf(std::string_view text, int64_t pts, int64_t duration) {
  return packetOf(std::vector<uint8_t>(text.begin(), text.end()), pts, duration);
}

PacketPtr soundPacket(int64_t pts, int samples, int channels, int16_t level) {
  std::vector<uint8_t> bytes;
  for (int i = 0; i < samples * channels; ++i) {
    bytes.push_back(static_cast<uint8_t>(level & 0xFF));
    bytes.push_back(static_cast<uint8_t>(level >> 8 & 0xFF));
  }
  return packetOf(bytes, pts, samples);
}

PacketPtr picturePacket(int64_t pts, int width, int height, uint8_t grey) {
  return packetOf(std::vector<uint8_t>(static_cast<size_t>(width * height * 3 / 2), grey), pts);
}

namespace {

/// Appends big-endian numbers.
class Writer {
 public:
  void byte(int value) { bytes_.push_back(static_cast<uint8_t>(value)); }
  void word(int value) {
    byte(value >> 8);
    byte(value);
  }
  /// Two numbers of 12 bits.
  void pair(int first, int second) {
    byte(first >> 4);
    byte((first & 0xF) << 4 | second >> 8);
    byte(second);
  }
  void setWord(size_t position, int value) {
    bytes_[position] = static_cast<uint8_t>(value >> 8);
    bytes_[position + 1] = static_cast<uint8_t>(value);
  }
  int position() const { return static_cast<int>(bytes_.size()); }
  std::vector<uint8_t> take() { return std::move(bytes_); }

 private:
  std::vector<uint8_t> bytes_;
};

/// The rows of one field: each a run of colour 3 up to its end.
int writeField(Writer& writer, int rows) {
  const int position = writer.position();
  for (int row = 0; row < rows; ++row) writer.word(3);
  return position;
}

}  // namespace

std::vector<uint8_t> subpictureBytes(const Subpicture& picture) {
  Writer writer;
  writer.word(0);  // the whole size, below
  writer.word(0);  // where the commands begin, below
  const int top = writeField(writer, (picture.height + 1) / 2);
  const int bottom = writeField(writer, picture.height / 2);

  const int show = writer.position();
  writer.word(picture.start);
  const int next = writer.position();
  writer.word(0);
  writer.byte(0x01);  // start of display
  writer.byte(0x03);  // palette indexes of the colours 3, 2, 1, 0
  writer.word(picture.paletteIndex << 12);
  writer.byte(0x04);  // their opacities
  writer.word(0xF000);
  writer.byte(0x05);  // place
  writer.pair(picture.x, picture.x + picture.width - 1);
  writer.pair(picture.y, picture.y + picture.height - 1);
  writer.byte(0x06);  // where the fields begin
  writer.word(top);
  writer.word(bottom);
  writer.byte(0xFF);

  const int hide = writer.position();
  writer.setWord(static_cast<size_t>(next), hide);
  writer.word(picture.end);
  writer.word(hide);  // the last one names itself
  writer.byte(0x02);  // end of display
  writer.byte(0xFF);
  writer.setWord(0, writer.position());
  writer.setWord(2, show);
  return writer.take();
}

}  // namespace kestrel::test
