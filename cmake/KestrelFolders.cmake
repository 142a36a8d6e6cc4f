# kestrel_add_folder(<name> [GLOBS <pattern>...])
#
# Compiles the sources of the current folder into the object library kestrel_<name>, which becomes
# part of the shared library. A folder without sources yet makes no target. Private headers are
# included by their path from the project's root; tests/structure guards which folder may include
# which.
function(kestrel_add_folder name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "GLOBS")
  if(NOT arg_GLOBS)
    set(arg_GLOBS "*.cpp")
  endif()
  file(GLOB sources CONFIGURE_DEPENDS ${arg_GLOBS})
  if(NOT sources)
    return()
  endif()

  add_library(kestrel_${name} OBJECT ${sources})
  target_include_directories(kestrel_${name} PRIVATE
    "${PROJECT_SOURCE_DIR}/include" "${PROJECT_SOURCE_DIR}")
  target_compile_definitions(kestrel_${name} PRIVATE KESTREL_BUILDING)
  target_link_libraries(kestrel_${name} PRIVATE kestrel_foreign kestrel_warnings)
  set_property(GLOBAL APPEND PROPERTY KESTREL_FOLDERS kestrel_${name})
endfunction()
