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
  LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT library
  INCLUDES DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}")
install(DIRECTORY "${PROJECT_SOURCE_DIR}/include/kestrel"
  DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}"
  FILES_MATCHING PATTERN "*.h")

if(TARGET kestrel)
  # install_programs(<folder> <target>...): they find the library from there.
  function(install_programs folder)
    root_from(way "${folder}")
    set_target_properties(${ARGN} PROPERTIES INSTALL_RPATH "$ORIGIN/${way}/${CMAKE_INSTALL_LIBDIR}")
    install(TARGETS ${ARGN} RUNTIME DESTINATION "${folder}")
  endfunction()
  install_programs("${CMAKE_INSTALL_BINDIR}" kestrel)
  install_programs("${KESTREL_INSTALL_HELPERDIR}" QTMovieHelperTask SamplePointsTask)

  # Where the shells look for completion below a prefix; systems differ about zsh.
  set(KESTREL_INSTALL_ZSHDIR "${CMAKE_INSTALL_DATADIR}/zsh/site-functions" CACHE STRING
    "Where completion for zsh is installed")
  set(shell "${PROJECT_BINARY_DIR}/shell")
  install(DIRECTORY "${shell}/" DESTINATION "${CMAKE_INSTALL_MANDIR}/man1"
    FILES_MATCHING PATTERN "*.1")
  install(FILES "${shell}/kestrel.bash" RENAME kestrel
    DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions")
  install(FILES "${shell}/_kestrel" DESTINATION "${KESTREL_INSTALL_ZSHDIR}")
  install(FILES "${shell}/kestrel.fish"
    DESTINATION "${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d")
endif()
install(FILES "${PROJECT_BINARY_DIR}/shell/libkestrelcode.3"
  DESTINATION "${CMAKE_INSTALL_MANDIR}/man3")

if(TARGET kestrel_python)
  # Where Debian's Python looks below /usr; elsewhere PYTHONPATH names it.
  set(KESTREL_INSTALL_PYTHONDIR "lib/python3/dist-packages" CACHE STRING
    "Where the Python package is installed")
  set(package "${KESTREL_INSTALL_PYTHONDIR}/kestrel")
  root_from(way "${package}")
  set_target_properties(kestrel_python PROPERTIES
    INSTALL_RPATH "$ORIGIN/${way}/${CMAKE_INSTALL_LIBDIR}")
  install(TARGETS kestrel_python LIBRARY DESTINATION "${package}" COMPONENT python)
  install(DIRECTORY "${PROJECT_SOURCE_DIR}/python/kestrel/" DESTINATION "${package}"
    COMPONENT python PATTERN "__pycache__" EXCLUDE)
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
