// The engine's view (FlutterDesktopViewRef): a plain black child window of its own class,
// created at the requested physical size inside a hidden parking window until the host moves it
// into its own window with SetParent.
#ifndef KESTRUN_TOOLS_HEADLESS_ENGINE_HEADLESS_VIEW_H_
#define KESTRUN_TOOLS_HEADLESS_ENGINE_HEADLESS_VIEW_H_

#include <windows.h>
#include <dxgi.h>
#include <wrl/client.h>

#include <flutter_windows.h>

#include <memory>

#include "view_paint_listener.h"

namespace kestrun_headless {

class HeadlessView {
 public:
  // Platform thread. Null (reason logged) if the windows cannot be created.
  static std::unique_ptr<HeadlessView> Create(int width, int height);
  // Destroys the view's window if the host has not destroyed it already (with its parent).
  ~HeadlessView();

  HeadlessView(const HeadlessView&) = delete;
  HeadlessView& operator=(const HeadlessView&) = delete;

  static HeadlessView* FromRef(FlutterDesktopViewRef ref) {
    return reinterpret_cast<HeadlessView*>(ref);
  }
  FlutterDesktopViewRef ref() { return reinterpret_cast<FlutterDesktopViewRef>(this); }

  // Null once the window has been destroyed.
  HWND window() const { return window_; }
  // The top-level window the host put the view in; null while it is still parked or gone.
  HWND MainWindow() const;
  // Whether the view is on screen (it and all its ancestors visible).
  bool IsShown() const;

  void set_paint_listener(ViewPaintListener* listener) { paint_listener_ = listener; }

  // Marks the whole view for repainting.
  void Invalidate();
  // Repaints now (a WM_PAINT is handled before this returns) if the view is on screen.
  void PaintNow();

  // The DXGI adapter of the system's default Direct3D 11 device (created on first use, kept by
  // the view); null when there is none.
  IDXGIAdapter* GraphicsAdapter();

 private:
  HeadlessView() = default;

  static LRESULT CALLBACK WindowProc(HWND window, UINT message, WPARAM wparam, LPARAM lparam);

  HWND window_ = nullptr;
  HWND parking_ = nullptr;
  ViewPaintListener* paint_listener_ = nullptr;
  bool adapter_looked_up_ = false;
  Microsoft::WRL::ComPtr<IDXGIAdapter> adapter_;
};

}  // namespace kestrun_headless

#endif  // KESTRUN_TOOLS_HEADLESS_ENGINE_HEADLESS_VIEW_H_
