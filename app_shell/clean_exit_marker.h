// The clean-exit marker: "kestrun.clean_exit" in "<roaming app data>\Quillmere LLC\Kestrun",
// written when the Windows session really ends. Something outside the host reads it; the host
// never reads or deletes it.
#ifndef KESTRUN_APP_SHELL_CLEAN_EXIT_MARKER_H_
#define KESTRUN_APP_SHELL_CLEAN_EXIT_MARKER_H_

#include <cstdint>
#include <string>

namespace kestrun_shell {

// The marker's whole content: "clean_exit:" then the time in decimal, no line end.
std::string CleanExitMarkerText(int64_t seconds_since_1970);

// Writes (overwrites) the marker below `app_data_folder` with the time `seconds_since_1970`. Only
// the last folder level ("Kestrun") is created: when "Quillmere LLC" does not exist, nothing is
// written. Every failure is silent.
void WriteCleanExitMarkerIn(const std::wstring& app_data_folder, int64_t seconds_since_1970);

// WriteCleanExitMarkerIn the user's roaming application-data folder at the current time; does
// nothing when that folder cannot be found.
void WriteCleanExitMarker();

}  // namespace kestrun_shell

#endif  // KESTRUN_APP_SHELL_CLEAN_EXIT_MARKER_H_
