// Whether the Windows session is locked, judged from the foreground window: while the lock screen
// (or another secure-desktop screen) is up, the foreground belongs to LogonUI.exe or to nobody.
#ifndef KESTRUN_APP_SHELL_SESSION_LOCK_H_
#define KESTRUN_APP_SHELL_SESSION_LOCK_H_

#include <string>

namespace kestrun_shell {

// True when the file name after the last backslash of `image_path` is "LogonUI.exe", in any
// letter case. A path without a backslash is not LogonUI.
bool IsLogonUiImagePath(const std::wstring& image_path);

// The lock test: true when there is no foreground window or its process is LogonUI.exe; false
// when the owning process cannot be found, opened or named.
bool IsSessionLocked();

}  // namespace kestrun_shell

#endif  // KESTRUN_APP_SHELL_SESSION_LOCK_H_
