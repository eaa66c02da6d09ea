// Resource identifiers of kestrun.exe.
#ifndef KESTRUN_APP_SHELL_RESOURCES_RESOURCE_H_
#define KESTRUN_APP_SHELL_RESOURCES_RESOURCE_H_

// The application icon; the main window's class uses it.
#define IDI_APP_ICON 101

#endif  // KESTRUN_APP_SHELL_RESOURCES_RESOURCE_H_
