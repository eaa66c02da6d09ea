// Whether the process runs from the Microsoft Store package of Kestrun's publisher.
#ifndef KESTRUN_APP_SHELL_STORE_DISTRIBUTION_H_
#define KESTRUN_APP_SHELL_STORE_DISTRIBUTION_H_

#include <windows.h>

#include <cstdint>

namespace kestrun_shell {

// kernel32's GetCurrentPackageId (Windows 8 and later).
using GetCurrentPackageIdFunction = LONG(WINAPI*)(UINT32* buffer_length, BYTE* buffer);

// The start of the package identity GetCurrentPackageId writes (the system's PACKAGE_ID, declared
// here because not every tool chain's headers have it). Its strings point into the same buffer.
#pragma pack(push, 4)
struct PackageIdLayout {
  UINT32 reserved;
  UINT32 processor_architecture;
  UINT64 version;
  PWSTR name;
  PWSTR publisher;
  PWSTR resource_id;
  PWSTR publisher_id;
};
#pragma pack(pop)

// True when `publisher` is Kestrun's store publisher, compared ordinally ignoring case.
bool IsExpectedStorePublisher(const wchar_t* publisher);

// The store check with the given GetCurrentPackageId: true only for a package identity whose
// publisher is Kestrun's. An unpackaged process, a missing function and every failure give false.
bool IsStorePackageOfExpectedPublisher(GetCurrentPackageIdFunction get_current_package_id);

// The store check of this process, with GetCurrentPackageId looked up in kernel32 at run time.
bool IsRunningFromStorePackage();

}  // namespace kestrun_shell

#endif  // KESTRUN_APP_SHELL_STORE_DISTRIBUTION_H_
