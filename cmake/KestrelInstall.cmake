# What `cmake --install` puts in place: library, headers, tools, and what CMake and pkg-config need
# to find them. The tree may be moved as a whole afterwards.

include(CMakePackageConfigHelpers)

set(cmake_dir "${CMAKE_INSTALL_LIBDIR}/cmake/KestrelCode")
set(pkgconfig_dir "${CMAKE_INSTALL_LIBDIR}/pkgconfig")

# root_from(<variable> <folder>): the way from an installed folder back to the prefix.
function(root_from variable folder)
  file(RELATIVE_PATH way "/prefix/${folder}" "/prefix")
  string(REGEX REPLACE "/$" "" way "${way}")
  set(${variable} "${way}" PARENT_SCOPE)
endfunction()

install(TARGETS kestrelcode EXPORT KestrelCodeTargets
  LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}"
  INCLUDES DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}")
install(DIRECTORY "${PROJECT_SOURCE_DIR}/include/kestrel"
  DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}"
  FILES_MATCHING PATTERN "*.h")

if(TARGET kestrel)
  root_from(way "${CMAKE_INSTALL_BINDIR}")
  set(programs kestrel QTMovieHelperTask SamplePointsTask)
  set_target_properties(${programs} PROPERTIES
    INSTALL_RPATH "$ORIGIN/${way}/${CMAKE_INSTALL_LIBDIR}")
  install(TARGETS ${programs} RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}")
endif()

install(EXPORT KestrelCodeTargets NAMESPACE KestrelCode:: DESTINATION "${cmake_dir}")
configure_package_config_file(
  "${PROJECT_SOURCE_DIR}/cmake/KestrelCodeConfig.cmake.in"
  "${PROJECT_BINARY_DIR}/KestrelCodeConfig.cmake"
  INSTALL_DESTINATION "${cmake_dir}"
  NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(
  "${PROJECT_BINARY_DIR}/KestrelCodeConfigVersion.cmake"
  COMPATIBILITY SameMinorVersion)
install(FILES
  "${PROJECT_BINARY_DIR}/KestrelCodeConfig.cmake"
  "${PROJECT_BINARY_DIR}/KestrelCodeConfigVersion.cmake"
  DESTINATION "${cmake_dir}")

root_from(KESTREL_PREFIX_FROM_PC "${pkgconfig_dir}")
configure_file(
  "${PROJECT_SOURCE_DIR}/cmake/kestrelcode.pc.in" "${PROJECT_BINARY_DIR}/kestrelcode.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/kestrelcode.pc" DESTINATION "${pkgconfig_dir}")
