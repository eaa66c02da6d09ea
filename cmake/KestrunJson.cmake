# nlohmann-json (header-only) as the target kestrun::json, for the headless engine's control
# protocol and its clients.
#
# Linux builds (MinGW included) take the distribution's package (nlohmann-json3-dev). Its headers
# sit in /usr/include, which a MinGW build must never search (the build machine's C library
# headers are there), so only the library's own folder is exposed: a folder of the build tree
# that holds nothing but a link to it. MSVC builds find an installed copy through its CMake
# package (find_package(nlohmann_json)); KESTRUN_NLOHMANN_JSON_INCLUDE_DIR may instead name any
# folder that holds nlohmann/json.hpp.
add_library(kestrun_json INTERFACE)
add_library(kestrun::json ALIAS kestrun_json)

set(KESTRUN_NLOHMANN_JSON_INCLUDE_DIR "" CACHE PATH
    "folder holding nlohmann/json.hpp (empty: the distribution's package, or find_package)")

set(nlohmann_headers "")
if(KESTRUN_NLOHMANN_JSON_INCLUDE_DIR)
  set(nlohmann_headers ${KESTRUN_NLOHMANN_JSON_INCLUDE_DIR}/nlohmann)
elseif(MSVC)
  find_package(nlohmann_json 3.10 CONFIG REQUIRED)
  target_link_libraries(kestrun_json INTERFACE nlohmann_json::nlohmann_json)
else()
  find_path(nlohmann_parent nlohmann/json.hpp PATHS /usr/include /usr/local/include
            NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
  if(NOT nlohmann_parent)
    message(FATAL_ERROR "nlohmann/json.hpp not found; scripts/lib/install-deps installs it "
                        "(package nlohmann-json3-dev)")
  endif()
  set(nlohmann_headers ${nlohmann_parent}/nlohmann)
endif()

if(nlohmann_headers)
  set(json_include ${CMAKE_BINARY_DIR}/_deps/nlohmann_json/include)
  file(MAKE_DIRECTORY ${json_include})
  file(CREATE_LINK ${nlohmann_headers} ${json_include}/nlohmann SYMBOLIC)
  target_include_directories(kestrun_json SYSTEM INTERFACE ${json_include})
endif()
