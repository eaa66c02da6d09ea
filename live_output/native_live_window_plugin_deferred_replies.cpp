#include "live_output/native_live_window_plugin_deferred_replies.h"

#include <cstdio>
#include <utility>

namespace native_live_window {

namespace {

constexpr wchar_t kWindowClassName[] = L"KestrunCallbackWindow";

// Any object of this module, to find the module by address.
const char kModuleMarker = 0;

// The module this code is linked into (the program, or a DLL that holds the plugin).
HINSTANCE ThisModule() {
  HMODULE module = nullptr;
  GetModuleHandleExW(
      GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
      reinterpret_cast<LPCWSTR>(&kModuleMarker), &module);
  return module;
}

}  // namespace

DeferredReplies::DeferredReplies() {
  const HINSTANCE instance = ThisModule();
  WNDCLASSEXW window_class = {};
  window_class.cbSize = sizeof(window_class);
  window_class.lpfnWndProc = &DeferredReplies::WindowProc;
  window_class.hInstance = instance;
  window_class.lpszClassName = kWindowClassName;
  // A second plugin in the process finds the class already registered, with this procedure.
  RegisterClassExW(&window_class);
  window_ = CreateWindowExW(0, kWindowClassName, L"", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr,
                            instance, nullptr);
  if (window_ != nullptr) {
    SetWindowLongPtrW(window_, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
    OutputDebugStringW(L"Kestrun: Callback window created\n");
  } else {
    OutputDebugStringW(L"Kestrun: Failed to create callback window\n");
  }
}

DeferredReplies::~DeferredReplies() {
  if (window_ != nullptr) {
    SetWindowLongPtrW(window_, GWLP_USERDATA, 0);
    DestroyWindow(window_);
    window_ = nullptr;
  }
}

std::int32_t DeferredReplies::Park(std::unique_ptr<Result> result) {
  const std::int32_t request_id = next_request_id_.fetch_add(1);
  {
    std::lock_guard<std::mutex> lock(pending_mutex_);
    pending_[request_id] = std::move(result);
  }
  std::fflush(stdout);
  return request_id;
}

std::function<void()> DeferredReplies::CompletionAfter(std::int32_t request_id,
                                                       std::int32_t calls_needed) const {
  const HWND window = window_;
  auto calls = std::make_shared<std::atomic<std::int32_t>>(0);
  return [window, request_id, calls_needed, calls]() {
    if (calls->fetch_add(1) + 1 != calls_needed) {
      return;
    }
    if (window != nullptr) {
      PostMessageW(window, kCompletionMessage, static_cast<WPARAM>(request_id), 0);
    }
  };
}

std::size_t DeferredReplies::pending_count() const {
  std::lock_guard<std::mutex> lock(pending_mutex_);
  return pending_.size();
}

void DeferredReplies::Complete(std::int32_t request_id) {
  std::unique_ptr<Result> result;
  {
    std::lock_guard<std::mutex> lock(pending_mutex_);
    auto it = pending_.find(request_id);
    if (it == pending_.end()) {
      return;
    }
    result = std::move(it->second);
    pending_.erase(it);
  }
  if (result) {
    std::fflush(stdout);
    result->Success(flutter::EncodableValue(true));
  }
}

LRESULT CALLBACK DeferredReplies::WindowProc(HWND hwnd, UINT message, WPARAM wparam,
                                             LPARAM lparam) {
  if (message == kCompletionMessage) {
    auto* replies = reinterpret_cast<DeferredReplies*>(GetWindowLongPtrW(hwnd, GWLP_USERDATA));
    if (replies != nullptr) {
      replies->Complete(static_cast<std::int32_t>(wparam));
    }
    return 0;
  }
  return DefWindowProcW(hwnd, message, wparam, lparam);
}

}  // namespace native_live_window
