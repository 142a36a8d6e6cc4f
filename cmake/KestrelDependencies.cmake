# The foreign libraries, each behind a target of ours that names what it is for.

find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)

# Demuxing, decoding, encoding, resampling and scaling; filtering, whose library is loaded when it is
# first needed.
pkg_check_modules(FFMPEG REQUIRED IMPORTED_TARGET
  libavformat libavcodec libavutil libswscale libswresample)
pkg_check_modules(AVFILTER REQUIRED libavfilter)
# Text: layout, drawing, the installed fonts.
pkg_check_modules(PANGO REQUIRED IMPORTED_TARGET pangocairo cairo fontconfig)
# Subtitles with styles.
pkg_check_modules(ASS REQUIRED IMPORTED_TARGET libass)
# Display names of languages, scripts and encodings of text.
pkg_check_modules(ICU REQUIRED IMPORTED_TARGET icu-uc icu-i18n)
# Kernels for pictures, compiled for several instruction sets and chosen at run time.
pkg_check_modules(HIGHWAY REQUIRED IMPORTED_TARGET libhwy)
# Discs: their file system and information files.
pkg_check_modules(DVDREAD REQUIRED IMPORTED_TARGET dvdread)
# The loudness of sound.
pkg_check_modules(EBUR128 REQUIRED IMPORTED_TARGET libebur128)
# Sound: the tempo of playback; the device, whose library is loaded when it is first needed.
pkg_check_modules(RUBBERBAND REQUIRED IMPORTED_TARGET rubberband)
pkg_check_modules(SDL REQUIRED sdl2)
# Formatted text.
pkg_check_modules(FMT REQUIRED IMPORTED_TARGET fmt)
# JSON, headers only.
find_package(nlohmann_json 3.11 REQUIRED)

add_library(kestrel_foreign INTERFACE)
target_link_libraries(kestrel_foreign INTERFACE
  PkgConfig::FFMPEG PkgConfig::PANGO PkgConfig::ASS PkgConfig::ICU PkgConfig::HIGHWAY PkgConfig::DVDREAD
  PkgConfig::RUBBERBAND PkgConfig::EBUR128 PkgConfig::FMT nlohmann_json::nlohmann_json Threads::Threads ${CMAKE_DL_LIBS})
target_include_directories(kestrel_foreign SYSTEM INTERFACE ${SDL_INCLUDE_DIRS} ${AVFILTER_INCLUDE_DIRS})

# The command line's parser, headers only.
if(KESTREL_BUILD_TOOLS)
  find_package(CLI11 2.1 REQUIRED)
endif()

if(KESTREL_BUILD_TESTS)
  find_package(GTest REQUIRED)
endif()

# Measurements of single kernels; without it only those are left out.
find_package(benchmark QUIET)
