# What `cmake --install` puts under the prefix:
#   bin/pimrp                                         the tool
#   include/pimrp/{framework,model,rp,pipeline}/...   every header of the libraries, paths kept
#   lib/libpimrp_{framework,model,rp,pipeline}.a      the libraries
#   lib/cmake/pimrp/                                  the package: find_package(pimrp) gives
#                                                     pimrp::pipeline, pimrp::rp, pimrp::model,
#                                                     pimrp::framework
# The tool's own library (pimrp_tool) and headers stay inside the tool: nothing outside uses them.
# Folders named testing/ hold fault injection for this project's own tests and are not installed.

include(CMakePackageConfigHelpers)

set(PIMRP_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/pimrp)
set(PIMRP_BOOST_VERSION ${Boost_VERSION_MAJOR}.${Boost_VERSION_MINOR})

install(TARGETS pimrp_framework pimrp_model pimrp_rp pimrp_pipeline
  EXPORT pimrpTargets
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(TARGETS pimrp RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

# Headers are picked up by pattern, so a header added to a folder is installed without a change here.
foreach(folder framework model rp pipeline)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/${folder}/
    DESTINATION ${PIMRP_INSTALL_INCLUDEDIR}/${folder}
    FILES_MATCHING PATTERN "*.h"
    PATTERN "testing" EXCLUDE)
endforeach()

install(EXPORT pimrpTargets
  NAMESPACE pimrp::
  DESTINATION ${PIMRP_INSTALL_CMAKEDIR})
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/pimrpConfig.cmake.in
  ${PROJECT_BINARY_DIR}/pimrpConfig.cmake
  INSTALL_DESTINATION ${PIMRP_INSTALL_CMAKEDIR})
# Before 1.0 a minor version may change the interface, so only the same minor version is accepted.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/pimrpConfigVersion.cmake
  VERSION ${PROJECT_VERSION}
  COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/pimrpConfig.cmake ${PROJECT_BINARY_DIR}/pimrpConfigVersion.cmake
  DESTINATION ${PIMRP_INSTALL_CMAKEDIR})
