#include "engine_settings.h"

#include <windows.h>

#include <optional>
#include <string_view>

#include "engine_log.h"
#include "text_conversion.h"

namespace kestrun_headless {
namespace {

std::optional<std::string> Variable(const wchar_t* name) {
  const DWORD length = GetEnvironmentVariableW(name, nullptr, 0);
  if (length == 0) {
    return std::nullopt;
  }
  std::wstring value(length, L'\0');
  const DWORD written = GetEnvironmentVariableW(name, value.data(), length);
  value.resize(written);
  return WideToUtf8(value);
}

}  // namespace

EngineSettings EngineSettings::FromEnvironment() {
  const std::optional<std::string> control = Variable(L"KESTRUN_HEADLESS_CONTROL");
  const std::optional<std::string> hold = Variable(L"KESTRUN_HEADLESS_HOLD_FRAMES");
  const std::optional<std::string> failure = Variable(L"KESTRUN_HEADLESS_FAIL");
  return FromValues(control ? control->c_str() : nullptr, hold ? hold->c_str() : nullptr,
                    failure ? failure->c_str() : nullptr);
}

EngineSettings EngineSettings::FromValues(const char* control, const char* hold_frames,
                                          const char* failure) {
  EngineSettings settings;
  if (control != nullptr) {
    settings.control_address = control;
  }
  settings.hold_frames = hold_frames != nullptr && std::string_view(hold_frames) == "1";
  if (failure != nullptr && *failure != '\0') {
    const std::string_view name(failure);
    if (name == "engine") {
      settings.failure = Failure::kEngine;
    } else if (name == "view_controller") {
      settings.failure = Failure::kViewController;
    } else {
      EngineLog("KESTRUN_HEADLESS_FAIL=%s is neither engine nor view_controller; ignored", failure);
    }
  }
  return settings;
}

}  // namespace kestrun_headless
