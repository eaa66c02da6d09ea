// Where the engine finds the interface's compiled code and assets, and what its entry point gets.
#ifndef KESTRUN_PLATFORM_CHANNELS_DART_PROJECT_H_
#define KESTRUN_PLATFORM_CHANNELS_DART_PROJECT_H_

#include <string>
#include <utility>
#include <vector>

namespace flutter {

class DartProject {
 public:
  // `path` is the project folder ("data" beside the program); it is passed on as it stands and
  // resolved by the engine.
  explicit DartProject(const std::wstring& path)
      : assets_path_(path + L"\\flutter_assets"),
        icu_data_path_(path + L"\\icudtl.dat"),
        aot_library_path_(path + L"\\app.so") {}

  void set_dart_entrypoint(const std::string& entrypoint) { dart_entrypoint_ = entrypoint; }
  const std::string& dart_entrypoint() const { return dart_entrypoint_; }

  // UTF-8 arguments for the interface's entry point; replaces any earlier list.
  void set_dart_entrypoint_arguments(std::vector<std::string> arguments) {
    dart_entrypoint_arguments_ = std::move(arguments);
  }
  const std::vector<std::string>& dart_entrypoint_arguments() const {
    return dart_entrypoint_arguments_;
  }

  const std::wstring& assets_path() const { return assets_path_; }
  const std::wstring& icu_data_path() const { return icu_data_path_; }
  const std::wstring& aot_library_path() const { return aot_library_path_; }

 private:
  std::wstring assets_path_;
  std::wstring icu_data_path_;
  std::wstring aot_library_path_;
  std::string dart_entrypoint_;
  std::vector<std::string> dart_entrypoint_arguments_;
};

}  // namespace flutter

#endif  // KESTRUN_PLATFORM_CHANNELS_DART_PROJECT_H_
