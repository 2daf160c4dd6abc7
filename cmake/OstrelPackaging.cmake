# Packaging of the installed tree: run-time search paths, the CMake package
# (find_package(Ostrel) -> Ostrel::Ostrel) and the pkg-config file ostrel.pc.
#
# Installed layout under the prefix:
#   bin/ostrel                     the host program
#   include/{zel,zelrlibscsi,morvain,ostrel}/   public headers
#   <libdir>/lib{Pellor,Trevane,Dravik,Morvain,Ostrel}.so*
#   <libdir>/cmake/Ostrel/         OstrelConfig.cmake, version file, targets
#   <libdir>/pkgconfig/ostrel.pc
#   share/ostrel/                  language files, logger configuration
#
# Everything is found relative to where it lies, so an installed tree may be
# moved as a whole.

include(CMakePackageConfigHelpers)

set(OSTREL_LIBRARY_TARGETS Pellor Trevane Dravik Morvain Ostrel)
set(OSTREL_INSTALL_CMAKEDIR "${CMAKE_INSTALL_LIBDIR}/cmake/Ostrel")
set(OSTREL_BOOST_MIN_VERSION 1.71)

# Run-time search paths. The linker writes DT_RUNPATH, which serves only the
# object that carries it, not the libraries it pulls in; so each installed
# library carries $ORIGIN to find its siblings, and the program carries the
# way from bin/ to the library directory. libOstrel also opens libMorvain
# with dlopen from its own directory, which needs no search path at all.
set_target_properties(${OSTREL_LIBRARY_TARGETS} PROPERTIES INSTALL_RPATH "$ORIGIN")
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
  set(OSTREL_PROGRAM_RPATH "${CMAKE_INSTALL_LIBDIR}")
else()
  file(RELATIVE_PATH _ostrel_bin_to_lib "/prefix/${CMAKE_INSTALL_BINDIR}"
       "/prefix/${CMAKE_INSTALL_LIBDIR}")
  set(OSTREL_PROGRAM_RPATH "$ORIGIN/${_ostrel_bin_to_lib}")
endif()

# --- CMake package -----------------------------------------------------------------

install(EXPORT OstrelTargets
  NAMESPACE Ostrel::
  FILE OstrelTargets.cmake
  DESTINATION "${OSTREL_INSTALL_CMAKEDIR}")

set(OSTREL_PACKAGE_DATADIR "${CMAKE_INSTALL_DATADIR}/ostrel")
set(OSTREL_PACKAGE_BINDIR "${CMAKE_INSTALL_BINDIR}")
configure_package_config_file(
  "${CMAKE_CURRENT_LIST_DIR}/OstrelConfig.cmake.in"
  "${CMAKE_BINARY_DIR}/package/OstrelConfig.cmake"
  INSTALL_DESTINATION "${OSTREL_INSTALL_CMAKEDIR}"
  PATH_VARS OSTREL_PACKAGE_DATADIR OSTREL_PACKAGE_BINDIR)
# Every library carries the major version in its soname (libOstrel.so.5):
# a program built against 5.x runs with any later 5.y.
write_basic_package_version_file(
  "${CMAKE_BINARY_DIR}/package/OstrelConfigVersion.cmake"
  VERSION ${PROJECT_VERSION}
  COMPATIBILITY SameMajorVersion)
install(FILES
  "${CMAKE_BINARY_DIR}/package/OstrelConfig.cmake"
  "${CMAKE_BINARY_DIR}/package/OstrelConfigVersion.cmake"
  DESTINATION "${OSTREL_INSTALL_CMAKEDIR}")

# --- pkg-config --------------------------------------------------------------------

set(_ostrel_pcdir "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}" OR IS_ABSOLUTE "${CMAKE_INSTALL_INCLUDEDIR}"
   OR IS_ABSOLUTE "${CMAKE_INSTALL_DATADIR}")
  # Directories given as absolute paths: the tree cannot move, write them as they are.
  set(OSTREL_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
  set(OSTREL_PC_LIBDIR "${CMAKE_INSTALL_FULL_LIBDIR}")
  set(OSTREL_PC_INCLUDEDIR "${CMAKE_INSTALL_FULL_INCLUDEDIR}")
  set(OSTREL_PC_DATADIR "${CMAKE_INSTALL_FULL_DATADIR}/ostrel")
else()
  file(RELATIVE_PATH _ostrel_pc_to_prefix "/prefix/${_ostrel_pcdir}" "/prefix")
  string(REGEX REPLACE "/$" "" _ostrel_pc_to_prefix "${_ostrel_pc_to_prefix}")
  set(OSTREL_PC_PREFIX "\${pcfiledir}/${_ostrel_pc_to_prefix}")
  set(OSTREL_PC_LIBDIR "\${prefix}/${CMAKE_INSTALL_LIBDIR}")
  set(OSTREL_PC_INCLUDEDIR "\${prefix}/${CMAKE_INSTALL_INCLUDEDIR}")
  set(OSTREL_PC_DATADIR "\${prefix}/${CMAKE_INSTALL_DATADIR}/ostrel")
endif()
configure_file("${CMAKE_CURRENT_LIST_DIR}/ostrel.pc.in" "${CMAKE_BINARY_DIR}/package/ostrel.pc"
               @ONLY)
install(FILES "${CMAKE_BINARY_DIR}/package/ostrel.pc" DESTINATION "${_ostrel_pcdir}")

# --- tests of the package ----------------------------------------------------------

if(OSTREL_BUILD_TESTS)
  # Every public header is in the umbrella header, which compiles on its own.
  set(_ostrel_boost_flags "")
  foreach(dir IN LISTS Boost_INCLUDE_DIRS)
    list(APPEND _ostrel_boost_flags "-I${dir}")
  endforeach()
  add_test(NAME package.umbrella_header
    COMMAND bash ${CMAKE_SOURCE_DIR}/tests/package/umbrella_header_test.sh
            ${CMAKE_SOURCE_DIR} ${CMAKE_CXX_COMPILER}
            -I${CMAKE_SOURCE_DIR}/clientapis/src
            -I${CMAKE_SOURCE_DIR}/platform/foundation/include
            -I${CMAKE_SOURCE_DIR}/platform/framework/include
            -I${CMAKE_SOURCE_DIR}/platform/scsi/include
            ${_ostrel_boost_flags})
  set_tests_properties(package.umbrella_header PROPERTIES LABELS client TIMEOUT 60)

  # Install, move, build against and run. Not under sanitizers: a program
  # built without them cannot load libraries built with them.
  if(OSTREL_SANITIZE STREQUAL "")
    add_test(NAME package.install
      COMMAND bash ${CMAKE_SOURCE_DIR}/tests/package/install_test.sh
              ${CMAKE_BINARY_DIR} ${CMAKE_SOURCE_DIR} ${CMAKE_CXX_COMPILER})
    set_tests_properties(package.install PROPERTIES LABELS client TIMEOUT 120)
  endif()
endif()
