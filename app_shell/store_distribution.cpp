#include "store_distribution.h"

#include <cstddef>
#include <cstring>
#include <vector>

#include "system_function.h"

namespace kestrun_shell {

namespace {

constexpr wchar_t kStorePublisher[] = L"CN=3F1C9A72-5D04-4E6B-9A21-7C0E8B4D12F5";

#ifdef _WIN64
static_assert(offsetof(PackageIdLayout, publisher) == 24, "PACKAGE_ID layout");
static_assert(sizeof(PackageIdLayout) == 48, "PACKAGE_ID layout");
#endif

}  // namespace

bool IsExpectedStorePublisher(const wchar_t* publisher) {
  if (publisher == nullptr) {
    return false;
  }
  return CompareStringOrdinal(publisher, -1, kStorePublisher, -1, TRUE) == CSTR_EQUAL;
}

bool IsStorePackageOfExpectedPublisher(GetCurrentPackageIdFunction get_current_package_id) {
  if (get_current_package_id == nullptr) {
    return false;
  }
  UINT32 length = 0;
  // An unpackaged process gets its no-package error here instead.
  if (get_current_package_id(&length, nullptr) != ERROR_INSUFFICIENT_BUFFER) {
    return false;
  }
  if (length < sizeof(PackageIdLayout)) {
    return false;
  }
  std::vector<BYTE> buffer(length, 0);
  if (get_current_package_id(&length, buffer.data()) != ERROR_SUCCESS) {
    return false;
  }
  PackageIdLayout package_id;
  std::memcpy(&package_id, buffer.data(), sizeof(package_id));
  return IsExpectedStorePublisher(package_id.publisher);
}

bool IsRunningFromStorePackage() {
  return IsStorePackageOfExpectedPublisher(GetSystemFunction<GetCurrentPackageIdFunction>(
      GetModuleHandleW(L"kernel32.dll"), "GetCurrentPackageId"));
}

}  // namespace kestrun_shell
