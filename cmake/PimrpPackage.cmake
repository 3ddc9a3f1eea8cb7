# `cpack -G DEB` (or plain `cpack`) from the build tree makes pimrp-<version>-<arch>.deb: everything
# `cmake --install` installs, under /usr.

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME pimrp)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_VENDOR "pimrp maintainers")
set(CPACK_PACKAGE_CONTACT "pimrp maintainers")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
    "PIM Rendezvous Point selection library (static libraries, headers, CMake package) and the pimrp tool")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)

set(CPACK_DEBIAN_PACKAGE_MAINTAINER "pimrp maintainers")
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)

find_program(PIMRP_DPKG dpkg)
if(PIMRP_DPKG)
  execute_process(COMMAND ${PIMRP_DPKG} --print-architecture
    OUTPUT_VARIABLE PIMRP_DEB_ARCHITECTURE OUTPUT_STRIP_TRAILING_WHITESPACE)
else()
  set(PIMRP_DEB_ARCHITECTURE ${CMAKE_SYSTEM_PROCESSOR})
endif()
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${PIMRP_DEB_ARCHITECTURE})
set(CPACK_PACKAGE_FILE_NAME ${CPACK_PACKAGE_NAME}-${CPACK_PACKAGE_VERSION}-${PIMRP_DEB_ARCHITECTURE})

# The tool's shared libraries (libc, libstdc++, ...) are found by dpkg-shlibdeps where it exists;
# without it they are named by hand. The installed headers include Boost's.
find_program(PIMRP_DPKG_SHLIBDEPS dpkg-shlibdeps)
if(PIMRP_DPKG_SHLIBDEPS)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_PACKAGE_DEPENDS "libboost-dev (>= ${PIMRP_BOOST_VERSION})")
else()
  set(CPACK_DEBIAN_PACKAGE_DEPENDS
      "libc6, libstdc++6, libgcc-s1, libboost-dev (>= ${PIMRP_BOOST_VERSION})")
endif()
# find_package(pimrp) needs CMake; the tool alone does not.
set(CPACK_DEBIAN_PACKAGE_SUGGESTS cmake)

include(CPack)
