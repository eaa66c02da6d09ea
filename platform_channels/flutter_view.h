// The engine's view: a child window that the main window hosts.
#ifndef KESTRUN_PLATFORM_CHANNELS_FLUTTER_VIEW_H_
#define KESTRUN_PLATFORM_CHANNELS_FLUTTER_VIEW_H_

#include <flutter_windows.h>

namespace flutter {

class FlutterView {
 public:
  explicit FlutterView(FlutterDesktopViewRef view) : view_(view) {}

  FlutterView(const FlutterView&) = delete;
  FlutterView& operator=(const FlutterView&) = delete;

  HWND GetNativeWindow() const { return FlutterDesktopViewGetHWND(view_); }
  // Not owned; null on error.
  IDXGIAdapter* GetGraphicsAdapter() const { return FlutterDesktopViewGetGraphicsAdapter(view_); }

 private:
  FlutterDesktopViewRef view_;
};

}  // namespace flutter

#endif  // KESTRUN_PLATFORM_CHANNELS_FLUTTER_VIEW_H_
