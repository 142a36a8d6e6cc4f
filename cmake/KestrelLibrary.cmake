# The shared library that all folders make together. Only what a public header marks KESTREL_API is
# visible outside.

get_property(kestrel_folders GLOBAL PROPERTY KESTREL_FOLDERS)

add_library(kestrelcode SHARED)
add_library(KestrelCode::kestrelcode ALIAS kestrelcode)
foreach(folder IN LISTS kestrel_folders)
  target_sources(kestrelcode PRIVATE $<TARGET_OBJECTS:${folder}>)
endforeach()
set_target_properties(kestrelcode PROPERTIES
  VERSION ${PROJECT_VERSION}
  SOVERSION 0
  LINKER_LANGUAGE CXX)
target_compile_features(kestrelcode PUBLIC cxx_std_20)
target_include_directories(kestrelcode PUBLIC
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
  $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
target_link_libraries(kestrelcode PRIVATE $<BUILD_INTERFACE:kestrel_foreign>)
if(NOT KESTREL_SANITIZE)
  # A sanitizer's run-time library may come with the program only.
  target_link_options(kestrelcode PRIVATE LINKER:--no-undefined)
endif()

# Most parts once more, for tests that look behind the public headers. It is linked after the shared library, so it supplies only what that one keeps to
# itself.
set(private_objects "")
foreach(folder IN ITEMS kestrel_platform kestrel_support kestrel_sources kestrel_media
                       kestrel_composition kestrel_convert)
  if(TARGET ${folder})
    list(APPEND private_objects $<TARGET_OBJECTS:${folder}>)
  endif()
endforeach()
add_library(kestrel_private STATIC EXCLUDE_FROM_ALL ${private_objects})
set_target_properties(kestrel_private PROPERTIES LINKER_LANGUAGE CXX)
target_include_directories(kestrel_private PUBLIC "${PROJECT_SOURCE_DIR}")
target_link_libraries(kestrel_private PUBLIC kestrel_foreign)
