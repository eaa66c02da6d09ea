// What the packaged-plugin stand-ins make observable to tests.
//
// Every stand-in's registration function sends one method call on kStandInPluginsChannel through
// the messenger of the registrar it was handed (so the record arrives on that registrar's engine):
//   method kRegisteredMethod, arguments {kPluginKey: <plugin class name, e.g. "FvpPluginCApi">,
//                                        kRegistrarKey: <the registrar handle as a 64-bit integer>}
//
// The multi-window stand-in also answers calls on kMultiWindowChannel, on every engine it was
// registered on:
//   kCreateWindowMethod, optional arguments {"width": int, "height": int} (default 640 x 480):
//   creates a secondary engine window the way the real plugin does (a client-wrapper view
//   controller compiled into the stand-in, with its own engine), calls the window-created
//   callback with that controller, registers itself on the new engine as
//   "DesktopMultiWindowPlugin", and answers the window's id (64-bit integer, 1 for the first);
//   the error "CREATE_FAILED" if the engine or its view could not be made.
#ifndef KESTRUN_TESTING_PLUGINS_STANDIN_PLUGIN_CHANNELS_H_
#define KESTRUN_TESTING_PLUGINS_STANDIN_PLUGIN_CHANNELS_H_

namespace kestrun_testing {

inline constexpr char kStandInPluginsChannel[] = "kestrun.testing/plugins";
inline constexpr char kRegisteredMethod[] = "registered";
inline constexpr char kPluginKey[] = "plugin";
inline constexpr char kRegistrarKey[] = "registrar";

inline constexpr char kMultiWindowChannel[] = "kestrun.testing/multi_window";
inline constexpr char kCreateWindowMethod[] = "createWindow";

}  // namespace kestrun_testing

#endif  // KESTRUN_TESTING_PLUGINS_STANDIN_PLUGIN_CHANNELS_H_
