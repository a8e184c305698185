# Installation: the static libraries, the headers by list, the two tools and the bash completion, a
# CMake package (vestra::basicutil, vestra::libzero) and two pkg-config files. Included from
# src/CMakeLists.txt, where the targets are.
include(CMakePackageConfigHelpers)
set_target_properties(basicutil PROPERTIES EXPORT_NAME basicutil)
set_target_properties(libzero PROPERTIES EXPORT_NAME libzero)
set_target_properties(vestra_platform PROPERTIES EXPORT_NAME platform)
install(TARGETS basicutil libzero vestra_platform EXPORT vestraTargets
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(TARGETS vestra-helper vestra RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
# The headers by list: the public ones (cmake/public-headers.txt) and those they need
# (cmake/support-headers.txt). A listed header that includes an unlisted one of ours is refused
# here, so that an install can never miss what a public header needs.
function(vestra_read_header_list file out)
  file(STRINGS ${file} lines REGEX "^[^#]")
  set(${out} ${lines} PARENT_SCOPE)
endfunction()
vestra_read_header_list(${PROJECT_SOURCE_DIR}/cmake/public-headers.txt VESTRA_PUBLIC_HEADERS)
vestra_read_header_list(${PROJECT_SOURCE_DIR}/cmake/support-headers.txt VESTRA_SUPPORT_HEADERS)
set(VESTRA_INSTALLED_HEADERS ${VESTRA_PUBLIC_HEADERS} ${VESTRA_SUPPORT_HEADERS})
foreach(header IN LISTS VESTRA_INSTALLED_HEADERS)
  set(path ${PROJECT_SOURCE_DIR}/src/${header})
  if(NOT EXISTS ${path})
    message(FATAL_ERROR "cmake/*-headers.txt lists ${header}, which src/ does not have")
  endif()
  file(STRINGS ${path} includes REGEX "^#include \"(basicutil|libzero)/")
  foreach(line IN LISTS includes)
    string(REGEX REPLACE "^#include \"([^\"]+)\".*" "\\1" included "${line}")
    if(NOT included IN_LIST VESTRA_INSTALLED_HEADERS)
      message(FATAL_ERROR "${header} includes ${included}, which is not installed: list it in "
                          "cmake/public-headers.txt or cmake/support-headers.txt, or stop including it")
    endif()
  endforeach()
  get_filename_component(folder ${header} DIRECTORY)
  install(FILES ${path} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${folder})
endforeach()
install(FILES ${PROJECT_SOURCE_DIR}/packaging/bash-completion/vestra
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)

install(EXPORT vestraTargets NAMESPACE vestra:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/vestra)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/vestraConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/vestraConfig.cmake INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/vestra)
# Before 1.0 a minor release may change the interface: 0.1 matches 0.1.x only.
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/vestraConfigVersion.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/vestraConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/vestraConfigVersion.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/vestra)
# pkg-config files twice: for the install, relative to the installed file so that the tree can
# move (staged where nobody looks for them); and in the build tree's pkgconfig/, naming the
# sources and the libraries built here, so that they work in place.
# FreeBSD keeps pkg-config files in libdata/pkgconfig.
if(CMAKE_SYSTEM_NAME STREQUAL "FreeBSD")
  set(VESTRA_PKGCONFIG_DEFAULT libdata/pkgconfig)
else()
  set(VESTRA_PKGCONFIG_DEFAULT ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endif()
set(VESTRA_PKGCONFIG_DIR ${VESTRA_PKGCONFIG_DEFAULT} CACHE STRING "where the .pc files go, under the prefix")
# double-conversion's link flags from the library found here; its directory only where the
# compiler would not look by itself (/usr/local/lib on FreeBSD).
get_target_property(VESTRA_DC_LIBRARY double-conversion::double-conversion LOCATION)
get_filename_component(VESTRA_DC_LIBDIR "${VESTRA_DC_LIBRARY}" DIRECTORY)
set(VESTRA_PC_DOUBLE_CONVERSION_LIBS "-ldouble-conversion")
if(NOT VESTRA_DC_LIBDIR IN_LIST CMAKE_CXX_IMPLICIT_LINK_DIRECTORIES)
  set(VESTRA_PC_DOUBLE_CONVERSION_LIBS "-L${VESTRA_DC_LIBDIR} -ldouble-conversion")
endif()
file(RELATIVE_PATH VESTRA_PC_TO_PREFIX /${VESTRA_PKGCONFIG_DIR} /)
string(REGEX REPLACE "/$" "" VESTRA_PC_TO_PREFIX "${VESTRA_PC_TO_PREFIX}")
foreach(pc vestra-basicutil vestra-libzero)
  set(VESTRA_PC_PREFIX "\${pcfiledir}/${VESTRA_PC_TO_PREFIX}")
  set(VESTRA_PC_LIBDIR "\${prefix}/${CMAKE_INSTALL_LIBDIR}")
  set(VESTRA_PC_INCLUDEDIR "\${prefix}/${CMAKE_INSTALL_INCLUDEDIR}")
  configure_file(${PROJECT_SOURCE_DIR}/cmake/${pc}.pc.in ${CMAKE_CURRENT_BINARY_DIR}/CMakeFiles/pkgconfig-install/${pc}.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/CMakeFiles/pkgconfig-install/${pc}.pc DESTINATION ${VESTRA_PKGCONFIG_DIR})
  set(VESTRA_PC_PREFIX "${CMAKE_BINARY_DIR}")
  set(VESTRA_PC_LIBDIR "${CMAKE_ARCHIVE_OUTPUT_DIRECTORY}")
  set(VESTRA_PC_INCLUDEDIR "${PROJECT_SOURCE_DIR}/src")
  configure_file(${PROJECT_SOURCE_DIR}/cmake/${pc}.pc.in ${CMAKE_BINARY_DIR}/pkgconfig/${pc}.pc @ONLY)
endforeach()
