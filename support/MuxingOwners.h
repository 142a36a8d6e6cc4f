#pragma once

// Owners of the handles that only writing needs.

#include "support/FFmpegOwners.h"

extern "C" {
#include <libavcodec/bsf.h>
}

namespace kestrel {

struct BitstreamFilterDeleter {
  void operator()(AVBSFContext* filter) const { av_bsf_free(&filter); }
};
struct ParserDeleter {
  void operator()(AVCodecParserContext* parser) const { av_parser_close(parser); }
};
struct ParametersDeleter {
  void operator()(AVCodecParameters* parameters) const { avcodec_parameters_free(&parameters); }
};

/// Frees an output container, and closes its file as it stands.
struct OutputContextDeleter {
  void operator()(AVFormatContext* context) const {
    if (!(context->oformat->flags & AVFMT_NOFILE)) avio_closep(&context->pb);
    avformat_free_context(context);
  }
};

using BitstreamFilterPtr = std::unique_ptr<AVBSFContext, BitstreamFilterDeleter>;
using ParserPtr = std::unique_ptr<AVCodecParserContext, ParserDeleter>;
using ParametersPtr = std::unique_ptr<AVCodecParameters, ParametersDeleter>;
using OutputContextPtr = std::unique_ptr<AVFormatContext, OutputContextDeleter>;

}  // namespace kestrel
