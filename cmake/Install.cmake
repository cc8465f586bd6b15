# What `cmake --install` puts under a prefix, and the Debian package made from it.
#
# Installed for hosts: <ferrotip/ferrotip.h>, the module (libferrotip.so with its
# SONAME), the CMake package (ferrotip::ferrotip) and ferrotip.pc; for users: the
# ferrotip command and its man page. The static subsystem libraries and their
# headers stay inside the tree: they are not a stable interface, and the faces
# built on them (the CLI, bindings, plug-ins) are built here.
#
# A new face packages itself by adding its own install() rules next to its target
# (guarded by the same condition that creates the target): `cpack` packs every
# install rule of the project into one package.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(FERROTIP_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/ferrotip)

# The module as hosts see it: ferrotip::ferrotip, in the tree and once installed.
add_library(ferrotip::ferrotip ALIAS ferrotip_module)
set_target_properties(ferrotip_module PROPERTIES EXPORT_NAME ferrotip)
target_include_directories(ferrotip_module INTERFACE
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
  $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)

install(TARGETS ferrotip_module EXPORT ferrotipTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES ${PROJECT_SOURCE_DIR}/include/ferrotip/ferrotip.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/ferrotip)

install(EXPORT ferrotipTargets NAMESPACE ferrotip:: DESTINATION ${FERROTIP_CMAKE_DIR})
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/ferrotipConfig.cmake.in
  ${PROJECT_BINARY_DIR}/ferrotipConfig.cmake INSTALL_DESTINATION ${FERROTIP_CMAKE_DIR})
# The SONAME changes with the major version, so the CMake package promises the same.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/ferrotipConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/ferrotipConfig.cmake
  ${PROJECT_BINARY_DIR}/ferrotipConfigVersion.cmake DESTINATION ${FERROTIP_CMAKE_DIR})

file(RELATIVE_PATH FERROTIP_PC_PREFIX_FROM_PCDIR
  ${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" FERROTIP_PC_PREFIX_FROM_PCDIR "${FERROTIP_PC_PREFIX_FROM_PCDIR}")
get_target_property(FERROTIP_PC_LIBRARY ferrotip_module OUTPUT_NAME)  # ferrotip, Ferrotip_x64
configure_file(${CMAKE_CURRENT_LIST_DIR}/ferrotip.pc.in ${PROJECT_BINARY_DIR}/ferrotip.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/ferrotip.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

if(TARGET ferrotip)
  include(${CMAKE_CURRENT_LIST_DIR}/ManPage.cmake)
endif()

# `cpack -G DEB` in the build tree: one package with everything installed above
# and by any other install() rule, its library dependencies found by dpkg-shlibdeps.
# (The Windows build ships the DLL alone; it has no package of its own.)
if(WIN32)
  return()
endif()
set(CPACK_PACKAGE_NAME ferrotip)
set(CPACK_PACKAGE_VENDOR ferrotip)
set(CPACK_PACKAGE_CONTACT "ferrotip developers <ferrotip@localhost>" CACHE STRING
  "Maintainer named in the Debian package")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "audio repair: clicks, crackle and dropouts")
set(CPACK_PACKAGE_DESCRIPTION
  "A shared library that a host audio editor loads to mend a short damaged region of a\n\
recording, with seven repair methods (straight line, least-squares AR interpolation,\n\
waveform replacement), and the ferrotip command that repairs and declicks audio files.\n\
Includes the C header, a CMake package and a pkg-config file for hosts.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION sound)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The Python module (when built) needs the interpreter it was built for and numpy,
# which dpkg-shlibdeps cannot see.
if(TARGET ferrotip_python)
  math(EXPR next_minor "${FERROTIP_PYTHON_MINOR} + 1")
  set(CPACK_DEBIAN_PACKAGE_DEPENDS "python3 (>= ${FERROTIP_PYTHON_MAJOR}.${FERROTIP_PYTHON_MINOR}), \
python3 (<< ${FERROTIP_PYTHON_MAJOR}.${next_minor}), python3-numpy")
endif()
# A shlibs file, and ldconfig run on install and removal, as for any shared library.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_GENERATOR DEB)
include(CPack)
