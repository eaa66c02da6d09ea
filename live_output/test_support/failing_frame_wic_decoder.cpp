#include "live_output/test_support/failing_frame_wic_decoder.h"

#include <atomic>

namespace native_live_window {

namespace {

using Microsoft::WRL::ComPtr;

// Reference counting and QueryInterface for a COM object of the interfaces Base derives from
// (listed by Iids, ending in nullptr), passing calls on to a real object of the same kind.
template <typename Base>
class Forwarder : public Base {
 public:
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
    if (object == nullptr) {
      return E_POINTER;
    }
    for (const IID* const* known = Iids(); *known != nullptr; ++known) {
      if (iid == **known) {
        *object = static_cast<Base*>(this);
        this->AddRef();
        return S_OK;
      }
    }
    *object = nullptr;
    return E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++count_; }
  ULONG STDMETHODCALLTYPE Release() override {
    const ULONG left = --count_;
    if (left == 0) {
      delete this;
    }
    return left;
  }

 protected:
  explicit Forwarder(Base* real) : real_(real) {}
  virtual ~Forwarder() = default;
  // The interfaces this object answers to.
  virtual const IID* const* Iids() const = 0;

  ComPtr<Base> real_;

 private:
  std::atomic<ULONG> count_{1};
};

class FailingFrame : public Forwarder<IWICBitmapFrameDecode> {
 public:
  explicit FailingFrame(IWICBitmapFrameDecode* real) : Forwarder(real) {}

  HRESULT STDMETHODCALLTYPE GetSize(UINT* width, UINT* height) override {
    return real_->GetSize(width, height);
  }
  HRESULT STDMETHODCALLTYPE GetPixelFormat(WICPixelFormatGUID* format) override {
    return real_->GetPixelFormat(format);
  }
  HRESULT STDMETHODCALLTYPE GetResolution(double* x, double* y) override {
    return real_->GetResolution(x, y);
  }
  HRESULT STDMETHODCALLTYPE CopyPalette(IWICPalette* palette) override {
    return real_->CopyPalette(palette);
  }
  HRESULT STDMETHODCALLTYPE CopyPixels(const WICRect*, UINT, UINT, BYTE*) override {
    return WINCODEC_ERR_BADIMAGE;
  }
  HRESULT STDMETHODCALLTYPE GetMetadataQueryReader(IWICMetadataQueryReader** reader) override {
    return real_->GetMetadataQueryReader(reader);
  }
  HRESULT STDMETHODCALLTYPE GetColorContexts(UINT count, IWICColorContext** contexts,
                                             UINT* actual) override {
    return real_->GetColorContexts(count, contexts, actual);
  }
  HRESULT STDMETHODCALLTYPE GetThumbnail(IWICBitmapSource** thumbnail) override {
    return real_->GetThumbnail(thumbnail);
  }

 private:
  const IID* const* Iids() const override {
    static const IID* const iids[] = {&IID_IUnknown, &IID_IWICBitmapSource,
                                      &IID_IWICBitmapFrameDecode, nullptr};
    return iids;
  }
};

class FailingFrameDecoder : public Forwarder<IWICBitmapDecoder> {
 public:
  FailingFrameDecoder(IWICBitmapDecoder* real, UINT failing_index, FrameFailure failure)
      : Forwarder(real), failing_index_(failing_index), failure_(failure) {}

  HRESULT STDMETHODCALLTYPE GetFrame(UINT index, IWICBitmapFrameDecode** frame) override {
    if (index != failing_index_) {
      return real_->GetFrame(index, frame);
    }
    if (frame != nullptr) {
      *frame = nullptr;
    }
    ComPtr<IWICBitmapFrameDecode> real_frame;
    if (failure_ == FrameFailure::kGetFrame || FAILED(real_->GetFrame(index, &real_frame))) {
      return WINCODEC_ERR_BADIMAGE;
    }
    *frame = new FailingFrame(real_frame.Get());
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE QueryCapability(IStream* stream, DWORD* capability) override {
    return real_->QueryCapability(stream, capability);
  }
  HRESULT STDMETHODCALLTYPE Initialize(IStream* stream, WICDecodeOptions options) override {
    return real_->Initialize(stream, options);
  }
  HRESULT STDMETHODCALLTYPE GetContainerFormat(GUID* format) override {
    return real_->GetContainerFormat(format);
  }
  HRESULT STDMETHODCALLTYPE GetDecoderInfo(IWICBitmapDecoderInfo** info) override {
    return real_->GetDecoderInfo(info);
  }
  HRESULT STDMETHODCALLTYPE CopyPalette(IWICPalette* palette) override {
    return real_->CopyPalette(palette);
  }
  HRESULT STDMETHODCALLTYPE GetMetadataQueryReader(IWICMetadataQueryReader** reader) override {
    return real_->GetMetadataQueryReader(reader);
  }
  HRESULT STDMETHODCALLTYPE GetPreview(IWICBitmapSource** preview) override {
    return real_->GetPreview(preview);
  }
  HRESULT STDMETHODCALLTYPE GetColorContexts(UINT count, IWICColorContext** contexts,
                                             UINT* actual) override {
    return real_->GetColorContexts(count, contexts, actual);
  }
  HRESULT STDMETHODCALLTYPE GetThumbnail(IWICBitmapSource** thumbnail) override {
    return real_->GetThumbnail(thumbnail);
  }
  HRESULT STDMETHODCALLTYPE GetFrameCount(UINT* count) override {
    return real_->GetFrameCount(count);
  }

 private:
  const IID* const* Iids() const override {
    static const IID* const iids[] = {&IID_IUnknown, &IID_IWICBitmapDecoder, nullptr};
    return iids;
  }

  const UINT failing_index_;
  const FrameFailure failure_;
};

}  // namespace

ComPtr<IWICBitmapDecoder> WrapWithFailingFrame(IWICBitmapDecoder* real, UINT failing_index,
                                               FrameFailure failure) {
  ComPtr<IWICBitmapDecoder> wrapped;
  if (real != nullptr) {
    wrapped.Attach(new FailingFrameDecoder(real, failing_index, failure));
  }
  return wrapped;
}

}  // namespace native_live_window
