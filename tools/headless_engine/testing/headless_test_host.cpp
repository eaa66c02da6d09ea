// A tiny host program for the headless engine's end-to-end tests: a top-level window that hosts
// the engine's view through our channel layer, a method channel and an event channel for the
// tests to talk to, and top-level window-procedure delegates. Built into bin/ beside the headless
// flutter_windows.dll, which it loads.
//
// Channel "kestrun.test/host" (calls from the interface):
//   "echo"                 success with the arguments
//   "fail"                 error "TEST_FAILURE", "failure on request", details = the arguments
//   "sendToInterface"      sends "fromHost" with the arguments to the interface; success true
//   "askInterface"         calls "askInterface" on the interface awaiting a reply, then sends
//                          "interfaceAnswered" with "success", "error" or "notImplemented"
//   "replyFromWorker"      answers success with the arguments from another thread
//   "emit" / "emitError" / "endStream"   on the event channel's sink; success = a sink existed
//   "textureRoundTrip"     registers a texture, marks a frame, unregisters it and answers from
//                          the unregistration callback {"id":..,"marked":..}
//   "graphicsAdapter"      {"present": whether the view has an adapter, "stable": whether asking
//                          again gives the same one}
//   "quit"                 success true, then closes the window; the process exits with the
//                          argument (an int) as its code
//   anything else          not implemented
// Event channel "kestrun.test/host_events": listen with {"refuse": true} fails with
// "LISTEN_REFUSED"; otherwise the first event, "listening", is sent at once.
// Window messages: the first delegate (through PluginRegistrarWindows) reports WM_DISPLAYCHANGE
// as "displayChanged" {"bitsPerPixel","width","height"} without handling it, and handles
// WM_APP+0x42 with lparam * 2; the second (registered on the engine directly) handles WM_APP+0x42
// with -1 (never reached) and WM_APP+0x43 with 7.
#include <windows.h>
#include <shellapi.h>

#include <flutter_windows.h>

#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "dart_project.h"
#include "event_channel.h"
#include "flutter_view_controller.h"
#include "method_channel.h"
#include "method_result_functions.h"
#include "plugin_registrar_manager.h"
#include "plugin_registrar_windows.h"
#include "standard_method_codec.h"
#include "stream_handler_functions.h"

namespace {

using flutter::EncodableMap;
using flutter::EncodableValue;

constexpr wchar_t kWindowClass[] = L"KestrunHeadlessTestHost";
constexpr UINT kFirstDelegateMessage = WM_APP + 0x42;
constexpr UINT kSecondDelegateMessage = WM_APP + 0x43;

std::string ToUtf8(const wchar_t* text) {
  const int length = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
  if (length <= 1) return std::string();
  std::string out(static_cast<size_t>(length - 1), '\0');
  WideCharToMultiByte(CP_UTF8, 0, text, -1, out.data(), length, nullptr, nullptr);
  return out;
}

// Everything the host keeps while it runs.
class TestHost {
 public:
  bool Create(std::vector<std::string> arguments);
  void Destroy();
  int exit_code() const { return exit_code_; }

  LRESULT HandleMessage(HWND window, UINT message, WPARAM wparam, LPARAM lparam);

 private:
  void HandleCall(const flutter::MethodCall<EncodableValue>& call,
                  std::unique_ptr<flutter::MethodResult<EncodableValue>> result);
  void SendToInterface(const std::string& method, EncodableValue arguments);
  std::optional<LRESULT> FirstDelegate(UINT message, WPARAM wparam, LPARAM lparam);
  static bool SecondDelegate(HWND window, UINT message, WPARAM wparam, LPARAM lparam,
                             void* user_data, LRESULT* result);

  HWND window_ = nullptr;
  int exit_code_ = 0;
  std::unique_ptr<flutter::FlutterViewController> controller_;
  std::unique_ptr<flutter::MethodChannel<EncodableValue>> channel_;
  std::unique_ptr<flutter::EventChannel<EncodableValue>> events_;
  std::unique_ptr<flutter::EventSink<EncodableValue>> sink_;
  std::vector<std::thread> workers_;
};

TestHost g_host;

LRESULT CALLBACK WindowProc(HWND window, UINT message, WPARAM wparam, LPARAM lparam) {
  return g_host.HandleMessage(window, message, wparam, lparam);
}

bool TestHost::Create(std::vector<std::string> arguments) {
  WNDCLASSW window_class = {};
  window_class.lpfnWndProc = &WindowProc;
  window_class.hInstance = GetModuleHandleW(nullptr);
  window_class.hCursor = LoadCursorW(nullptr, IDC_ARROW);
  window_class.lpszClassName = kWindowClass;
  RegisterClassW(&window_class);
  window_ = CreateWindowExW(0, kWindowClass, L"headless test host", WS_OVERLAPPEDWINDOW, 40, 40,
                            800, 600, nullptr, nullptr, GetModuleHandleW(nullptr), nullptr);
  if (window_ == nullptr) {
    std::fprintf(stderr, "test host: no window\n");
    return false;
  }
  RECT client = {};
  GetClientRect(window_, &client);
  flutter::DartProject project(L"data");
  project.set_dart_entrypoint_arguments(std::move(arguments));
  controller_ = std::make_unique<flutter::FlutterViewController>(
      client.right - client.left, client.bottom - client.top, project);
  if (controller_->engine() == nullptr || controller_->view() == nullptr) {
    return false;
  }
  flutter::FlutterEngine* engine = controller_->engine();
  FlutterDesktopPluginRegistrarRef registrar_ref = engine->GetRegistrarForPlugin("TestHost");
  auto* registrar = flutter::PluginRegistrarManager::GetInstance()
                        ->GetRegistrar<flutter::PluginRegistrarWindows>(registrar_ref);

  channel_ = std::make_unique<flutter::MethodChannel<EncodableValue>>(
      registrar->messenger(), "kestrun.test/host", &flutter::StandardMethodCodec::GetInstance());
  channel_->SetMethodCallHandler([this](const auto& call, auto result) {
    HandleCall(call, std::move(result));
  });

  events_ = std::make_unique<flutter::EventChannel<EncodableValue>>(
      registrar->messenger(), "kestrun.test/host_events",
      &flutter::StandardMethodCodec::GetInstance());
  events_->SetStreamHandler(std::make_unique<flutter::StreamHandlerFunctions<EncodableValue>>(
      [this](const EncodableValue* arguments,
             std::unique_ptr<flutter::EventSink<EncodableValue>>&& sink)
          -> std::unique_ptr<flutter::StreamHandlerError<EncodableValue>> {
        const auto* map = arguments != nullptr ? std::get_if<EncodableMap>(arguments) : nullptr;
        if (map != nullptr && map->count(EncodableValue("refuse")) != 0) {
          return std::make_unique<flutter::StreamHandlerError<EncodableValue>>(
              "LISTEN_REFUSED", "listening refused on request", nullptr);
        }
        sink_ = std::move(sink);
        sink_->Success(EncodableValue("listening"));
        return nullptr;
      },
      [this](const EncodableValue*) -> std::unique_ptr<flutter::StreamHandlerError<EncodableValue>> {
        sink_.reset();
        return nullptr;
      }));

  registrar->RegisterTopLevelWindowProcDelegate(
      [this](HWND, UINT message, WPARAM wparam, LPARAM lparam) {
        return FirstDelegate(message, wparam, lparam);
      });
  FlutterDesktopPluginRegistrarRegisterTopLevelWindowProcDelegate(registrar_ref, &SecondDelegate,
                                                                  this);

  SetParent(controller_->view()->GetNativeWindow(), window_);
  MoveWindow(controller_->view()->GetNativeWindow(), 0, 0, client.right, client.bottom, TRUE);
  HWND window = window_;
  engine->SetNextFrameCallback([window] { ShowWindow(window, SW_SHOW); });
  controller_->ForceRedraw();
  return true;
}

void TestHost::Destroy() {
  sink_.reset();
  events_.reset();
  channel_.reset();
  controller_.reset();
  for (std::thread& worker : workers_) {
    worker.join();
  }
  workers_.clear();
}

void TestHost::SendToInterface(const std::string& method, EncodableValue arguments) {
  channel_->InvokeMethod(method, std::make_unique<EncodableValue>(std::move(arguments)));
}

void TestHost::HandleCall(const flutter::MethodCall<EncodableValue>& call,
                          std::unique_ptr<flutter::MethodResult<EncodableValue>> result) {
  const std::string& method = call.method_name();
  const EncodableValue arguments = call.arguments() != nullptr ? *call.arguments() : EncodableValue();
  if (method == "echo") {
    result->Success(arguments);
  } else if (method == "fail") {
    result->Error("TEST_FAILURE", "failure on request", arguments);
  } else if (method == "sendToInterface") {
    SendToInterface("fromHost", arguments);
    result->Success(EncodableValue(true));
  } else if (method == "askInterface") {
    auto report = [this](const char* kind) {
      SendToInterface("interfaceAnswered", EncodableValue(kind));
    };
    channel_->InvokeMethod(
        "askInterface", std::make_unique<EncodableValue>(arguments),
        std::make_unique<flutter::MethodResultFunctions<EncodableValue>>(
            [report](const EncodableValue*) { report("success"); },
            [report](const std::string&, const std::string&, const EncodableValue*) {
              report("error");
            },
            [report] { report("notImplemented"); }));
    result->Success(EncodableValue(true));
  } else if (method == "replyFromWorker") {
    std::shared_ptr<flutter::MethodResult<EncodableValue>> shared(std::move(result));
    workers_.emplace_back([shared, arguments] { shared->Success(arguments); });
  } else if (method == "emit" || method == "emitError" || method == "endStream") {
    const bool had_sink = sink_ != nullptr;
    if (had_sink) {
      if (method == "emit") {
        sink_->Success(arguments);
      } else if (method == "emitError") {
        sink_->Error("STREAM_FAILURE", "stream failure on request", arguments);
      } else {
        sink_->EndOfStream();
        sink_.reset();
      }
    }
    result->Success(EncodableValue(had_sink));
  } else if (method == "textureRoundTrip") {
    flutter::TextureRegistrar* textures =
        flutter::PluginRegistrarManager::GetInstance()
            ->GetRegistrar<flutter::PluginRegistrarWindows>(
                controller_->engine()->GetRegistrarForPlugin("TestHost"))
            ->texture_registrar();
    auto texture = std::make_shared<flutter::TextureVariant>(flutter::PixelBufferTexture(
        [](size_t, size_t) -> const FlutterDesktopPixelBuffer* { return nullptr; }));
    const int64_t id = textures->RegisterTexture(texture.get());
    const bool marked = textures->MarkTextureFrameAvailable(id);
    std::shared_ptr<flutter::MethodResult<EncodableValue>> shared(std::move(result));
    textures->UnregisterTexture(id, [shared, texture, id, marked] {
      shared->Success(EncodableValue(EncodableMap{{EncodableValue("id"), EncodableValue(id)},
                                                  {EncodableValue("marked"), EncodableValue(marked)}}));
    });
  } else if (method == "graphicsAdapter") {
    IDXGIAdapter* adapter = controller_->view()->GetGraphicsAdapter();
    const bool stable = controller_->view()->GetGraphicsAdapter() == adapter;
    result->Success(EncodableValue(EncodableMap{{EncodableValue("present"), EncodableValue(adapter != nullptr)},
                                                {EncodableValue("stable"), EncodableValue(stable)}}));
  } else if (method == "quit") {
    const auto* code = std::get_if<int32_t>(&arguments);
    exit_code_ = code != nullptr ? *code : 0;
    result->Success(EncodableValue(true));
    PostMessageW(window_, WM_CLOSE, 0, 0);
  } else {
    result->NotImplemented();
  }
}

std::optional<LRESULT> TestHost::FirstDelegate(UINT message, WPARAM wparam, LPARAM lparam) {
  if (message == WM_DISPLAYCHANGE) {
    SendToInterface("displayChanged",
                    EncodableValue(EncodableMap{
                        {EncodableValue("bitsPerPixel"), EncodableValue(static_cast<int32_t>(wparam))},
                        {EncodableValue("width"), EncodableValue(static_cast<int32_t>(LOWORD(lparam)))},
                        {EncodableValue("height"), EncodableValue(static_cast<int32_t>(HIWORD(lparam)))}}));
    return std::nullopt;
  }
  if (message == kFirstDelegateMessage) {
    return static_cast<LRESULT>(lparam * 2);
  }
  return std::nullopt;
}

bool TestHost::SecondDelegate(HWND, UINT message, WPARAM, LPARAM, void*, LRESULT* result) {
  if (message == kFirstDelegateMessage) {
    *result = -1;
    return true;
  }
  if (message == kSecondDelegateMessage) {
    *result = 7;
    return true;
  }
  return false;
}

LRESULT TestHost::HandleMessage(HWND window, UINT message, WPARAM wparam, LPARAM lparam) {
  if (controller_) {
    std::optional<LRESULT> handled =
        controller_->HandleTopLevelWindowProc(window, message, wparam, lparam);
    if (handled) {
      return *handled;
    }
  }
  switch (message) {
    case WM_SIZE:
      if (controller_ && controller_->view() != nullptr) {
        RECT client = {};
        GetClientRect(window, &client);
        MoveWindow(controller_->view()->GetNativeWindow(), 0, 0, client.right, client.bottom,
                   TRUE);
      }
      return 0;
    case WM_DESTROY:
      Destroy();
      window_ = nullptr;
      PostQuitMessage(exit_code_);
      return 0;
    default:
      return DefWindowProcW(window, message, wparam, lparam);
  }
}

}  // namespace

int main() {
  std::vector<std::string> arguments;
  int count = 0;
  wchar_t** argv = CommandLineToArgvW(GetCommandLineW(), &count);
  for (int i = 1; argv != nullptr && i < count; ++i) {
    arguments.push_back(ToUtf8(argv[i]));
  }
  if (argv != nullptr) {
    LocalFree(argv);
  }
  if (!g_host.Create(std::move(arguments))) {
    g_host.Destroy();
    return 1;
  }
  MSG message;
  while (GetMessageW(&message, nullptr, 0, 0) > 0) {
    TranslateMessage(&message);
    DispatchMessageW(&message);
  }
  return g_host.exit_code();
}
