#include "Rotation.h"

#include <cmath>
#include <cstdint>
#include <cstring>

extern "C" {
#include <libavcodec/version.h>
#include <libavformat/avformat.h>
#include <libavutil/display.h>
}

namespace {

constexpr size_t kMatrixBytes = 9 * sizeof(int32_t);

/// The stream's display matrix, null where it has none.
const uint8_t* displayMatrix(const AVStream& stream) {
  size_t size = 0;
#if LIBAVCODEC_VERSION_INT >= AV_VERSION_INT(60, 30, 100)
  const AVPacketSideData* entry =
      av_packet_side_data_get(stream.codecpar->coded_side_data, stream.codecpar->nb_coded_side_data,
                              AV_PKT_DATA_DISPLAYMATRIX);
  const uint8_t* data = entry ? entry->data : nullptr;
  if (entry) size = entry->size;
#else
  const uint8_t* data = av_stream_get_side_data(&stream, AV_PKT_DATA_DISPLAYMATRIX, &size);
#endif
  return size >= kMatrixBytes ? data : nullptr;
}

}  // namespace

Orientation orientationOf(const AVStream& stream) {
  const uint8_t* data = displayMatrix(stream);
  if (!data) return {};
  int32_t matrix[9];
  std::memcpy(matrix, data, kMatrixBytes);
  // The determinant of the plane's part; a mirror in front of the turn negates the first row.
  const double a = matrix[0], b = matrix[1], c = matrix[3], d = matrix[4];
  const bool mirrored = a * d - b * c < 0;
  if (mirrored) {
    matrix[0] = -matrix[0];
    matrix[1] = -matrix[1];
  }
  const double degrees = av_display_rotation_get(matrix);
  return {mirrored, std::isnan(degrees) ? 0 : degrees};
}
