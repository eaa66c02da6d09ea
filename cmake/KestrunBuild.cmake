# Build conventions shared by every target of the project.

set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)
# Test programs and the engine stand-in they load live in their own folder, away from the
# program and the headless engine in bin/.
set(KESTRUN_TEST_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)

if(KESTRUN_SANITIZE AND NOT WIN32)
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
endif()
if(KESTRUN_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

if(WIN32)
  # Windows 10 API level, Unicode throughout, lean windows.h.
  add_compile_definitions(_WIN32_WINNT=0x0A00 WINVER=0x0A00 NTDDI_VERSION=0x0A000006
                          UNICODE _UNICODE WIN32_LEAN_AND_MEAN NOMINMAX)
endif()

# Warnings as errors for the project's own code (third-party sources keep their defaults).
function(kestrun_strict_warnings target)
  if(MSVC)
    target_compile_options(${target} PRIVATE /W4 /WX /permissive- /utf-8)
  else()
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Werror
                                             -Wno-missing-field-initializers)
  endif()
endfunction()

# kestrun_add_test(<name> SOURCES <files...> LIBS <targets...>)
# One GoogleTest program, registered with CTest as one test. Windows test programs run under Wine
# through the toolchain's emulator.
function(kestrun_add_test name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBS" ${ARGN})
  if(NOT KESTRUN_BUILD_TESTS OR KESTRUN_FUZZ)
    return()
  endif()
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_LIBS} GTest::gmock GTest::gtest_main)
  kestrun_strict_warnings(${name})
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${KESTRUN_TEST_OUTPUT_DIRECTORY})
  add_test(NAME ${name} COMMAND ${name} --gtest_color=no
           WORKING_DIRECTORY ${KESTRUN_TEST_OUTPUT_DIRECTORY})
endfunction()

# kestrun_application_manifest(<target>)
# Gives a Windows program the application manifest of kestrun.exe
# (app_shell/resources/kestrun.exe.manifest). Every program that opens output windows needs it when
# it runs on Windows: only a program that declares Windows 8 or later among its supported systems
# may create the layered child window that fades an output window. kestrun.exe carries the same
# file through its own resource script. With Visual C++ the linker's own manifest is switched off,
# so that ours is the only manifest resource and is not replaced.
function(kestrun_application_manifest target)
  if(NOT WIN32 OR NOT TARGET ${target})
    return()
  endif()
  enable_language(RC)
  set(manifest ${PROJECT_SOURCE_DIR}/app_shell/resources/kestrun.exe.manifest)
  set(script ${CMAKE_BINARY_DIR}/generated/kestrun_application_manifest.rc)
  if(NOT EXISTS ${script})
    # 1 = CREATEPROCESS_MANIFEST_RESOURCE_ID, 24 = RT_MANIFEST.
    file(CONFIGURE OUTPUT ${script} CONTENT "1 24 \"@manifest@\"\n" @ONLY)
  endif()
  target_sources(${target} PRIVATE ${script})
  set_property(SOURCE ${script} APPEND PROPERTY OBJECT_DEPENDS ${manifest})
  if(MSVC)
    target_link_options(${target} PRIVATE /MANIFEST:NO)
  endif()
endfunction()
