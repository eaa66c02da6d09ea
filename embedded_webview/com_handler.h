// A COM handler object around a callable: the completion and event handlers that WebView2 calls
// back. The browser holds a reference to each handler it was given, so the object lives until
// the last Release, whatever happened to the code that created it.

#ifndef KESTRUN_EMBEDDED_WEBVIEW_COM_HANDLER_H_
#define KESTRUN_EMBEDDED_WEBVIEW_COM_HANDLER_H_

#include <windows.h>
#include <unknwn.h>
#include <wrl/client.h>

#include <atomic>
#include <functional>
#include <utility>

namespace native_webview {

// Implements `Interface` (an IUnknown-derived handler whose slot 3 is Invoke(Args...)). Answers
// QueryInterface for IUnknown and `iid`.
template <typename Interface, typename... Args>
class ComHandler final : public Interface {
 public:
  using Function = std::function<HRESULT(Args...)>;

  ComHandler(const IID& iid, Function function) : iid_(iid), function_(std::move(function)) {}

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override {
    if (object == nullptr) {
      return E_POINTER;
    }
    if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, iid_)) {
      *object = static_cast<Interface*>(this);
      AddRef();
      return S_OK;
    }
    *object = nullptr;
    return E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++references_; }
  ULONG STDMETHODCALLTYPE Release() override {
    const ULONG left = --references_;
    if (left == 0) {
      delete this;
    }
    return left;
  }
  HRESULT STDMETHODCALLTYPE Invoke(Args... args) override {
    // Kept alive for the call: the function may drop the last outside reference.
    Microsoft::WRL::ComPtr<Interface> self(this);
    return function_ ? function_(args...) : S_OK;
  }

 private:
  ~ComHandler() = default;

  const IID iid_;
  Function function_;
  std::atomic<ULONG> references_{0};
};

// A new handler, held by the returned pointer.
template <typename Interface, typename... Args>
Microsoft::WRL::ComPtr<Interface> MakeHandler(
    const IID& iid, typename ComHandler<Interface, Args...>::Function function) {
  return Microsoft::WRL::ComPtr<Interface>(
      new ComHandler<Interface, Args...>(iid, std::move(function)));
}

}  // namespace native_webview

#endif  // KESTRUN_EMBEDDED_WEBVIEW_COM_HANDLER_H_
