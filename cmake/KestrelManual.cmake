# The library's manual page: its headers are those of the tiers, its example is one of examples/.

# The day of this version is that of its entry in CHANGELOG.md.
file(STRINGS "${PROJECT_SOURCE_DIR}/CHANGELOG.md" entries REGEX "^## ")
list(GET entries 0 newest)
if(NOT newest MATCHES "^## ${PROJECT_VERSION} \\(([0-9-]+)\\)$")
  message(FATAL_ERROR "CHANGELOG.md does not begin with version ${PROJECT_VERSION}: ${newest}")
endif()
set(KESTREL_RELEASE_DATE "${CMAKE_MATCH_1}")
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/CHANGELOG.md")

# roff(<variable>): its text as it is to be seen.
function(roff variable)
  set(text "${${variable}}")
  string(REPLACE "\\" "\\e" text "${text}")
  string(REPLACE "-" "\\-" text "${text}")
  string(REPLACE "'" "\\(aq" text "${text}")
  set(${variable} "${text}" PARENT_SCOPE)
endfunction()

set(KESTREL_MANUAL_HEADERS "")
foreach(tier IN ITEMS convert engine disc image platform)
  file(STRINGS "${PROJECT_SOURCE_DIR}/include/kestrel/${tier}.h" text REGEX "^// " LIMIT_COUNT 1)
  string(REGEX REPLACE "^// " "" text "${text}")
  roff(text)
  string(APPEND KESTREL_MANUAL_HEADERS ".TP\n.B kestrel/${tier}.h\n${text}\n")
endforeach()

file(READ "${PROJECT_SOURCE_DIR}/examples/convert.cpp" example)
roff(example)
set(KESTREL_MANUAL_EXAMPLE ".nf\n${example}.fi\n")
configure_file("${PROJECT_SOURCE_DIR}/docs/libkestrelcode.3.in"
  "${PROJECT_BINARY_DIR}/shell/libkestrelcode.3" @ONLY)
