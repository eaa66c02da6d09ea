// Base of every plugin object a registrar owns.
#ifndef KESTRUN_PLATFORM_CHANNELS_PLUGIN_H_
#define KESTRUN_PLATFORM_CHANNELS_PLUGIN_H_

namespace flutter {

class Plugin {
 public:
  virtual ~Plugin() = default;
};

}  // namespace flutter

#endif  // KESTRUN_PLATFORM_CHANNELS_PLUGIN_H_
