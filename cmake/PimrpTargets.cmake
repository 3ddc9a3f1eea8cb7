# Small wrappers so that each folder's CMakeLists.txt declares its targets in one call each.

include(GNUInstallDirs)

# Installed headers keep their paths from the project root under this folder of the include
# directory, so that code outside the tree includes them exactly as the sources do.
set(PIMRP_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/pimrp)

# pimrp_library(NAME <name> SRCS <files...> [DEPS <targets...>])
# Builds the static library pimrp_<name>, aliased pimrp::<name> and exported under that same name;
# sources include headers by their path from the project root ("framework/Kel/Ptr.h"), in the
# build tree and, once installed, from PIMRP_INSTALL_INCLUDEDIR.
function(pimrp_library)
  cmake_parse_arguments(ARG "" "NAME" "SRCS;DEPS" ${ARGN})
  add_library(pimrp_${ARG_NAME} STATIC ${ARG_SRCS})
  add_library(pimrp::${ARG_NAME} ALIAS pimrp_${ARG_NAME})
  set_target_properties(pimrp_${ARG_NAME} PROPERTIES EXPORT_NAME ${ARG_NAME})
  target_include_directories(pimrp_${ARG_NAME} PUBLIC
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>
    $<INSTALL_INTERFACE:${PIMRP_INSTALL_INCLUDEDIR}>)
  # The headers themselves need C++17, so every user of a library compiles as C++17 at least.
  target_compile_features(pimrp_${ARG_NAME} PUBLIC cxx_std_17)
  target_link_libraries(pimrp_${ARG_NAME} PUBLIC ${ARG_DEPS})
endfunction()

# pimrp_test(NAME <name> SRCS <files...> [DEPS <targets...>])
# One GoogleTest executable; every test case is registered with ctest on its own.
function(pimrp_test)
  cmake_parse_arguments(ARG "" "NAME" "SRCS;DEPS" ${ARGN})
  add_executable(${ARG_NAME} ${ARG_SRCS})
  target_include_directories(${ARG_NAME} PRIVATE ${PROJECT_SOURCE_DIR})
  target_link_libraries(${ARG_NAME} PRIVATE ${ARG_DEPS} GTest::gmock GTest::gtest_main)
  gtest_discover_tests(${ARG_NAME} DISCOVERY_TIMEOUT 60)
endfunction()
