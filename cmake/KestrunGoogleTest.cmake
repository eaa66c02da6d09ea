# GoogleTest and GoogleMock, built from the distribution's googletest sources with the project's
# own compiler (MinGW for the Windows tests, the host compiler with sanitizers for the native ones).
set(KESTRUN_GOOGLETEST_SOURCE_DIR /usr/src/googletest CACHE PATH "googletest source tree")
if(NOT EXISTS ${KESTRUN_GOOGLETEST_SOURCE_DIR}/CMakeLists.txt)
  message(FATAL_ERROR "googletest sources not found in ${KESTRUN_GOOGLETEST_SOURCE_DIR}; "
                      "scripts/test installs them (package googletest)")
endif()
set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
set(BUILD_GMOCK ON CACHE BOOL "" FORCE)
set(gtest_force_shared_crt ON CACHE BOOL "" FORCE)
add_subdirectory(${KESTRUN_GOOGLETEST_SOURCE_DIR} ${CMAKE_BINARY_DIR}/_deps/googletest EXCLUDE_FROM_ALL)
if(NOT TARGET GTest::gtest_main)
  add_library(GTest::gtest ALIAS gtest)
  add_library(GTest::gtest_main ALIAS gtest_main)
  add_library(GTest::gmock ALIAS gmock)
endif()
