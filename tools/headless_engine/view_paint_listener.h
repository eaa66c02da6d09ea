// Told by the engine's view whenever it has painted.
#ifndef KESTRUN_TOOLS_HEADLESS_ENGINE_VIEW_PAINT_LISTENER_H_
#define KESTRUN_TOOLS_HEADLESS_ENGINE_VIEW_PAINT_LISTENER_H_

namespace kestrun_headless {

class ViewPaintListener {
 public:
  virtual ~ViewPaintListener() = default;
  // Called on the platform thread at the end of the view's WM_PAINT.
  virtual void OnViewPainted() = 0;
};

}  // namespace kestrun_headless

#endif  // KESTRUN_TOOLS_HEADLESS_ENGINE_VIEW_PAINT_LISTENER_H_
