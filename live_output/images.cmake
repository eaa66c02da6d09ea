# Image decoding, the layout of images on live windows, and the live output plugin.
#
# kestrun_image: the quad and frame-timing rules (image_layout), GIF frame composition
# (gif_compositor) and, on Windows, the WIC decoders (image_decoder). The portable pieces are also
# built and tested natively with the sanitizers.

set(KESTRUN_IMAGE_SOURCES
  ${CMAKE_CURRENT_LIST_DIR}/image_layout.cpp
  ${CMAKE_CURRENT_LIST_DIR}/gif_compositor.cpp)
if(WIN32)
  list(APPEND KESTRUN_IMAGE_SOURCES ${CMAKE_CURRENT_LIST_DIR}/image_decoder.cpp)
endif()
add_library(kestrun_image STATIC ${KESTRUN_IMAGE_SOURCES})
target_include_directories(kestrun_image PUBLIC ${PROJECT_SOURCE_DIR})
kestrun_strict_warnings(kestrun_image)
if(WIN32)
  target_link_libraries(kestrun_image PUBLIC kestrun_logger windowscodecs ole32 oleaut32)
endif()

kestrun_add_test(image_layout_unittests
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/image_layout_unittests.cpp
  LIBS kestrun_image)
kestrun_add_test(gif_compositor_unittests
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/gif_compositor_unittests.cpp
  LIBS kestrun_image)

if(WIN32)
  # Image files written by the tests and benchmarks themselves.
  add_library(kestrun_image_test_support STATIC
    ${CMAKE_CURRENT_LIST_DIR}/gif_test_file_writer.cpp
    ${CMAKE_CURRENT_LIST_DIR}/image_decoder_test_files.cpp)
  target_include_directories(kestrun_image_test_support PUBLIC ${PROJECT_SOURCE_DIR})
  target_link_libraries(kestrun_image_test_support PUBLIC windowscodecs ole32 oleaut32)
  kestrun_strict_warnings(kestrun_image_test_support)

  kestrun_add_test(image_decoder_unittests
    SOURCES ${CMAKE_CURRENT_LIST_DIR}/image_decoder_unittests.cpp
    LIBS kestrun_image kestrun_image_test_support)
endif()

if(WIN32)
  # The live output plugin: the channel "com.kestrun.native_live_window" and the output windows
  # behind it.
  add_library(kestrun_live_window_plugin STATIC
    ${CMAKE_CURRENT_LIST_DIR}/native_live_window_plugin.cpp
    ${CMAKE_CURRENT_LIST_DIR}/native_live_window_plugin_c_api.cpp
    ${CMAKE_CURRENT_LIST_DIR}/native_live_window_plugin_deferred_replies.cpp)
  target_include_directories(kestrun_live_window_plugin PUBLIC ${PROJECT_SOURCE_DIR})
  target_link_libraries(kestrun_live_window_plugin
    PUBLIC kestrun_live_output kestrun_image kestrun_logger kestrun_channels user32)
  kestrun_strict_warnings(kestrun_live_window_plugin)
endif()

if(WIN32)
  kestrun_add_test(native_live_window_plugin_unittests
    SOURCES ${CMAKE_CURRENT_LIST_DIR}/native_live_window_plugin_unittests.cpp
    LIBS kestrun_live_window_plugin kestrun_image_test_support test_flutter_engine_link)
endif()

if(WIN32)
  # The live output channel of the real program, driven through the headless engine.
  kestrun_add_test(live_output_end_to_end_tests
    SOURCES ${CMAKE_CURRENT_LIST_DIR}/live_output_end_to_end_tests.cpp
    LIBS headless_control_client kestrun_image_test_support kestrun_live_window_test_support)
  if(TARGET live_output_end_to_end_tests)
    add_dependencies(live_output_end_to_end_tests kestrun headless_flutter_engine)
  endif()
endif()
