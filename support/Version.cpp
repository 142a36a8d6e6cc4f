#include <kestrel/Version.h>

#include <fmt/format.h>
#include <unicode/uversion.h>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavfilter/version.h>
#include <libavformat/avformat.h>
#include <libavutil/avutil.h>
#include <libswresample/swresample.h>
#include <libswscale/swscale.h>
}

namespace kestrel {

namespace {

std::string versionOf(unsigned number) {
  return fmt::format("{}.{}.{}", AV_VERSION_MAJOR(number), AV_VERSION_MINOR(number),
                     AV_VERSION_MICRO(number));
}

}  // namespace

std::string version() { return KESTREL_VERSION; }

std::vector<LibraryVersion> libraryVersions() {
  return {{"libavformat", versionOf(avformat_version())},
          {"libavcodec", versionOf(avcodec_version())},
          {"libavfilter", versionOf(LIBAVFILTER_VERSION_INT)},
          {"libavutil", versionOf(avutil_version())},
          {"libswscale", versionOf(swscale_version())},
          {"libswresample", versionOf(swresample_version())},
          {"ICU", U_ICU_VERSION}};
}

}  // namespace kestrel
