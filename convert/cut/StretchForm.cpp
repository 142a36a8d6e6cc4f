#include "convert/cut/StretchForm.h"

#include <string>

#include "convert/cut/AvcForm.h"
#include "convert/cut/InBandForm.h"
#include "convert/probe/Streams.h"
#include "support/copy/FineEncoder.h"

namespace kestrel {

namespace {

class WholeForm : public StretchForm {
 public:
  WholeForm(const AVStream& stream, bool setsApart) : stream_(stream), setsApart_(setsApart) {}

  bool setsApart() const override { return setsApart_; }

  std::string prepare(int steps, AVCodecParameters& output) override {
    CodecContextPtr encoder;
    const int result = openFineEncoder(encoder,
                                       {.parameters = *stream_.codecpar,
                                        .rate = stream_.avg_frame_rate,
                                        .steps = steps,
                                        .apart = setsApart_},
                                       *describedPicture(stream_));
    if (result < 0) return "the encoder refuses the stream's form";
    const AVRational pixel = output.sample_aspect_ratio;
    const AVFieldOrder fields = output.field_order;
    avcodec_parameters_from_context(&output, encoder.get());
    output.sample_aspect_ratio = pixel;
    output.field_order = fields;
    return {};
  }

  bool adopt(AVPacket& packet) override { return packet.size >= 0; }

 private:
  const AVStream& stream_;
  const bool setsApart_;
};

}  // namespace

std::string whyNeverEncoded(const AVStream& stream) {
  const AVCodecID codec = stream.codecpar->codec_id;
  if (!canEncodeFinely(codec))
    return std::string("pictures of ") + avcodec_get_name(codec) + " are only copied";
  const bool isVpx = codec == AV_CODEC_ID_VP8 || codec == AV_CODEC_ID_VP9;
  return isVpx && hasAlpha(stream) ? "the alpha of its pictures lies beside them" : "";
}

std::unique_ptr<StretchForm> makeStretchForm(const AVStream& stream, const PictureIndex& index,
                                             std::string& why) {
  why = index.change.empty() ? whyNeverEncoded(stream) : index.change;
  if (!why.empty()) return nullptr;
  if (stream.codecpar->codec_id == AV_CODEC_ID_H264)
    return std::make_unique<AvcForm>(stream, index);
  if (InBandForm::takes(stream.codecpar->codec_id)) return std::make_unique<InBandForm>(stream);
  why = std::string("nothing can be encoded among copied pictures of ") +
        avcodec_get_name(stream.codecpar->codec_id);
  return nullptr;
}

std::unique_ptr<StretchForm> makeWholeForm(const AVStream& stream, bool setsApart) {
  return std::make_unique<WholeForm>(stream, setsApart);
}

FramePtr describedPicture(const AVStream& stream) {
  FramePtr picture = makeFrame();
  const AVCodecParameters& parameters = *stream.codecpar;
  picture->width = parameters.width;
  picture->height = parameters.height;
  picture->format = parameters.format;
  picture->sample_aspect_ratio = parameters.sample_aspect_ratio;
  picture->color_primaries = parameters.color_primaries;
  picture->color_trc = parameters.color_trc;
  picture->colorspace = parameters.color_space;
  picture->color_range = parameters.color_range;
  picture->chroma_location = parameters.chroma_location;
  return picture;
}

}  // namespace kestrel
