# Live output windows: GPU diagnostics, the window with its render loop and fault guard, the image
# on the GPU, the fade overlay and blanking.

# The union of display bounds is plain arithmetic, tested natively too.
add_library(kestrun_display_bounds STATIC ${CMAKE_CURRENT_LIST_DIR}/display_bounds.cpp)
target_include_directories(kestrun_display_bounds PUBLIC ${PROJECT_SOURCE_DIR})
kestrun_strict_warnings(kestrun_display_bounds)

kestrun_add_test(display_bounds_unittests
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/display_bounds_unittests.cpp
  LIBS kestrun_display_bounds)

if(WIN32)
  add_library(kestrun_live_output STATIC
    ${CMAKE_CURRENT_LIST_DIR}/fade_overlay.cpp
    ${CMAKE_CURRENT_LIST_DIR}/gpu_diagnostics.cpp
    ${CMAKE_CURRENT_LIST_DIR}/image_pipeline.cpp
    ${CMAKE_CURRENT_LIST_DIR}/live_window_clock.cpp
    ${CMAKE_CURRENT_LIST_DIR}/native_live_window.cpp
    ${CMAKE_CURRENT_LIST_DIR}/recursive_lock.cpp
    ${CMAKE_CURRENT_LIST_DIR}/render_fault_guard.cpp
    ${CMAKE_CURRENT_LIST_DIR}/unique_event.cpp)
  target_include_directories(kestrun_live_output PUBLIC ${PROJECT_SOURCE_DIR})
  target_link_libraries(kestrun_live_output
    PUBLIC kestrun_logger kestrun_image kestrun_display_bounds
           d3d11 dxgi d3dcompiler dwmapi user32 gdi32)
  kestrun_strict_warnings(kestrun_live_output)

  # Helpers of the live output tests: a hand-moved clock, the log as text, waiting for presents,
  # reading the screen and making colour-coded images.
  add_library(kestrun_live_window_test_support STATIC
    ${CMAKE_CURRENT_LIST_DIR}/live_window_test_support.cpp)
  target_link_libraries(kestrun_live_window_test_support PUBLIC kestrun_live_output)
  kestrun_strict_warnings(kestrun_live_window_test_support)

  kestrun_add_test(live_window_unittests
    SOURCES
      ${CMAKE_CURRENT_LIST_DIR}/render_fault_guard_unittests.cpp
      ${CMAKE_CURRENT_LIST_DIR}/gpu_diagnostics_unittests.cpp
      ${CMAKE_CURRENT_LIST_DIR}/fade_overlay_unittests.cpp
      ${CMAKE_CURRENT_LIST_DIR}/native_live_window_unittests.cpp
      ${CMAKE_CURRENT_LIST_DIR}/live_window_render_loop_unittests.cpp
      ${CMAKE_CURRENT_LIST_DIR}/live_window_pixels_unittests.cpp
      ${CMAKE_CURRENT_LIST_DIR}/live_window_stress_unittests.cpp
    LIBS kestrun_live_window_test_support)
endif()
