// Export macro of the Flutter engine's C API as this program declares it.
//
// These declarations target the engine C API of the 2025 stable Flutter releases (Flutter 3.32 and
// later: engine properties with `gpu_preference` and `ui_thread_policy`, four-argument texture
// unregistration). A build inside a real Flutter `windows/` tree compiles against that engine's own
// headers instead (KESTRUN_FLUTTER_TREE), so that every struct matches the engine exactly.
#ifndef KESTRUN_ENGINE_API_FLUTTER_EXPORT_H_
#define KESTRUN_ENGINE_API_FLUTTER_EXPORT_H_

#ifdef FLUTTER_DESKTOP_LIBRARY
// Building the engine library itself (the headless engine or a test stand-in).
#ifdef _WIN32
#define FLUTTER_EXPORT __declspec(dllexport)
#else
#define FLUTTER_EXPORT __attribute__((visibility("default")))
#endif
#else
#ifdef _WIN32
#define FLUTTER_EXPORT __declspec(dllimport)
#else
#define FLUTTER_EXPORT
#endif
#endif

#endif  // KESTRUN_ENGINE_API_FLUTTER_EXPORT_H_
