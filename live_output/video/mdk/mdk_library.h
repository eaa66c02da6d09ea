// The media library, loaded at run time. On Windows the program looks for mdk.dll in its own
// folder (beside the executable); the library's own dependencies are then searched for beside
// mdk.dll. The library is loaded once and never unloaded, because players parked while they
// still run may call back into it until the process ends.

#ifndef KESTRUN_LIVE_OUTPUT_VIDEO_MDK_MDK_LIBRARY_H_
#define KESTRUN_LIVE_OUTPUT_VIDEO_MDK_MDK_LIBRARY_H_

#include <cstdint>
#include <memory>
#include <string>

#include "foreign_interfaces/mdk/mdk_c_api.h"

namespace mdk {

class Library {
 public:
  // mdk.dll beside the executable, loaded on first use (thread-safe) and kept for the process.
  static std::shared_ptr<Library> Default();
  // The library at the given file path (a name alone uses the system's search order).
  static std::shared_ptr<Library> Load(const std::wstring& path);

  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;
  ~Library();

  // True when the module loaded and exports the player functions.
  bool available() const { return new_player_ != nullptr && delete_player_ != nullptr; }
  // Why it is not available, for the log: "mdk.dll beside the program could not be loaded
  // (error 126)" and the like.
  const std::string& failure() const { return failure_; }
  // Runtime version as (major << 16) | (minor << 8) | patch; 0 when unknown.
  int version() const { return version_; }

  const mdkPlayerAPI* NewPlayer() const;
  void DeletePlayer(const mdkPlayerAPI** api) const;

 private:
  Library() = default;

  void* module_ = nullptr;
  MdkPlayerApiNewFn new_player_ = nullptr;
  MdkPlayerApiDeleteFn delete_player_ = nullptr;
  int version_ = 0;
  std::string failure_;
};

}  // namespace mdk

#endif  // KESTRUN_LIVE_OUTPUT_VIDEO_MDK_MDK_LIBRARY_H_
