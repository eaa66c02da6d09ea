// Raises the process's timer resolution to 1 ms for as long as the object lives.
//
// Both render loops (each output window's and the composition's) rest with Sleep(1) between
// passes. At Windows' default timer resolution of 15.6 ms that sleep lasts a whole timer tick,
// capping a loop near 64 passes a second and making 60 fps video judder; at 1 ms it lasts about
// 1 ms. The live output plugin holds one for its lifetime (through its video topology), which is
// the program's.

#ifndef KESTRUN_LIVE_OUTPUT_VIDEO_TIMER_RESOLUTION_H_
#define KESTRUN_LIVE_OUTPUT_VIDEO_TIMER_RESOLUTION_H_

namespace native_live_window {

class TimerResolution {
 public:
  TimerResolution();
  ~TimerResolution();
  TimerResolution(const TimerResolution&) = delete;
  TimerResolution& operator=(const TimerResolution&) = delete;

  // Whether the 1 ms period was granted (it is ended with the object).
  bool raised() const { return raised_; }
  // Periods raised by live objects of this class in the process.
  static int ActiveCount();

 private:
  bool raised_ = false;
};

}  // namespace native_live_window

#endif  // KESTRUN_LIVE_OUTPUT_VIDEO_TIMER_RESOLUTION_H_
