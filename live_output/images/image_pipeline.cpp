#include "live_output/images/image_pipeline.h"

#include <windows.h>

#include <d3dcompiler.h>
#include <dxgi.h>

#include <cstdio>
#include <cstring>
#include <string>

namespace native_live_window {
namespace {

using Microsoft::WRL::ComPtr;

// Positions arrive in normalised device coordinates, texture coordinates from the top-left texel.
constexpr char kVertexShaderSource[] =
    "\n"
    "struct VS_INPUT {\n"
    "    float2 pos : POSITION;\n"
    "    float2 uv : TEXCOORD0;\n"
    "};\n"
    "struct VS_OUTPUT {\n"
    "    float4 pos : SV_POSITION;\n"
    "    float2 uv : TEXCOORD0;\n"
    "};\n"
    "VS_OUTPUT main(VS_INPUT input) {\n"
    "    VS_OUTPUT output;\n"
    "    output.pos = float4(input.pos, 0.0, 1.0);\n"
    "    output.uv = input.uv;\n"
    "    return output;\n"
    "}\n";

constexpr char kPixelShaderSource[] =
    "\n"
    "Texture2D tex : register(t0);\n"
    "SamplerState samp : register(s0);\n"
    "struct PS_INPUT {\n"
    "    float4 pos : SV_POSITION;\n"
    "    float2 uv : TEXCOORD0;\n"
    "};\n"
    "float4 main(PS_INPUT input) : SV_TARGET {\n"
    "    return tex.Sample(samp, input.uv);\n"
    "}\n";

constexpr UINT kVertexStride = 4 * sizeof(float);
constexpr UINT kVertexCount = 6;

void PrintError(const char* text) {
  std::printf("Kestrun Native: ERROR - %s\n", text);
  std::fflush(stdout);
}

// Compiles one shader; the compiler's complaint goes to the debugger output.
bool CompileSource(const char* source, std::size_t length, const char* name, const char* target,
                   ComPtr<ID3DBlob>* code) {
  ComPtr<ID3DBlob> errors;
  const HRESULT hr = D3DCompile(source, length, name, nullptr, nullptr, "main", target, 0, 0,
                                code->ReleaseAndGetAddressOf(), &errors);
  if (FAILED(hr)) {
    if (errors) {
      std::string text(static_cast<const char*>(errors->GetBufferPointer()),
                       errors->GetBufferSize());
      OutputDebugStringA(text.c_str());
    }
    return false;
  }
  return true;
}

// The byte code of the two shaders does not depend on the device: it is compiled once for the
// process, so that a window that makes its device again after a loss does not wait for the
// compiler.
bool Compile(const char* source, std::size_t length, const char* name, const char* target,
             ComPtr<ID3DBlob>* code) {
  static std::mutex mutex;
  static ComPtr<ID3DBlob> vertex_code;
  static ComPtr<ID3DBlob> pixel_code;
  ComPtr<ID3DBlob>& cached = target[0] == 'v' ? vertex_code : pixel_code;
  std::lock_guard<std::mutex> lock(mutex);
  if (!cached && !CompileSource(source, length, name, target, &cached)) {
    return false;
  }
  *code = cached;
  return true;
}

}  // namespace

bool ImagePipeline::EnsureShadersLocked(ID3D11Device* device) {
  if (shaders_ready_) {
    return true;
  }
  if (device == nullptr) {
    return false;
  }
  ComPtr<ID3DBlob> vertex_code;
  if (!Compile(kVertexShaderSource, sizeof(kVertexShaderSource) - 1, "ImageVS", "vs_4_0",
               &vertex_code) ||
      FAILED(device->CreateVertexShader(vertex_code->GetBufferPointer(),
                                        vertex_code->GetBufferSize(), nullptr,
                                        vertex_shader_.ReleaseAndGetAddressOf()))) {
    return false;
  }
  const D3D11_INPUT_ELEMENT_DESC layout[] = {
      {"POSITION", 0, DXGI_FORMAT_R32G32_FLOAT, 0, 0, D3D11_INPUT_PER_VERTEX_DATA, 0},
      {"TEXCOORD", 0, DXGI_FORMAT_R32G32_FLOAT, 0, 8, D3D11_INPUT_PER_VERTEX_DATA, 0},
  };
  if (FAILED(device->CreateInputLayout(layout, 2, vertex_code->GetBufferPointer(),
                                       vertex_code->GetBufferSize(),
                                       input_layout_.ReleaseAndGetAddressOf()))) {
    return false;
  }
  ComPtr<ID3DBlob> pixel_code;
  if (!Compile(kPixelShaderSource, sizeof(kPixelShaderSource) - 1, "ImagePS", "ps_4_0",
               &pixel_code) ||
      FAILED(device->CreatePixelShader(pixel_code->GetBufferPointer(),
                                       pixel_code->GetBufferSize(), nullptr,
                                       pixel_shader_.ReleaseAndGetAddressOf()))) {
    return false;
  }

  D3D11_SAMPLER_DESC sampler = {};
  sampler.Filter = D3D11_FILTER_MIN_MAG_MIP_LINEAR;
  sampler.AddressU = D3D11_TEXTURE_ADDRESS_CLAMP;
  sampler.AddressV = D3D11_TEXTURE_ADDRESS_CLAMP;
  sampler.AddressW = D3D11_TEXTURE_ADDRESS_CLAMP;
  sampler.MipLODBias = 0.0f;
  sampler.MaxAnisotropy = 0;
  sampler.ComparisonFunc = D3D11_COMPARISON_NEVER;
  sampler.MinLOD = 0.0f;
  sampler.MaxLOD = D3D11_FLOAT32_MAX;
  if (FAILED(device->CreateSamplerState(&sampler, sampler_.ReleaseAndGetAddressOf()))) {
    return false;
  }

  D3D11_BUFFER_DESC buffer = {};
  buffer.ByteWidth = kVertexStride * kVertexCount;
  buffer.Usage = D3D11_USAGE_DYNAMIC;
  buffer.BindFlags = D3D11_BIND_VERTEX_BUFFER;
  buffer.CPUAccessFlags = D3D11_CPU_ACCESS_WRITE;
  if (FAILED(device->CreateBuffer(&buffer, nullptr, vertex_buffer_.ReleaseAndGetAddressOf()))) {
    return false;
  }

  shaders_ready_ = true;
  OutputDebugStringW(L"Kestrun: Image shaders initialized successfully\n");
  return true;
}

HRESULT ImagePipeline::Upload(ID3D11Device* device, const std::uint8_t* pixels,
                              std::int32_t width, std::int32_t height, std::int32_t fit_mode) {
  std::lock_guard<RecursiveLock> lock(image_mutex_);
  ClearLocked();
  image_width_ = width;
  image_height_ = height;
  fit_mode_ = fit_mode;
  still_pixels_.assign(pixels, pixels + static_cast<std::size_t>(width) *
                                            static_cast<std::size_t>(height) * 4);
  if (device == nullptr) {
    return DXGI_ERROR_DEVICE_REMOVED;
  }
  const HRESULT hr = MakeOnDeviceLocked(device, still_pixels_.data());
  if (FAILED(hr) && hr != DXGI_ERROR_DEVICE_REMOVED) {
    ClearLocked();
  }
  return hr;
}

HRESULT ImagePipeline::PrepareLocked(ID3D11Device* device) {
  if (image_width_ <= 0 || (device_.Get() == device && image_srv_ && shaders_ready_)) {
    return S_OK;
  }
  const std::uint8_t* pixels = still_pixels_.data();
  if (frames_ && current_frame_ < frames_->size()) {
    pixels = (*frames_)[current_frame_].data();
  }
  if (device == nullptr || pixels == nullptr) {
    return DXGI_ERROR_DEVICE_REMOVED;
  }
  const HRESULT hr = MakeOnDeviceLocked(device, pixels);
  if (FAILED(hr) && hr != DXGI_ERROR_DEVICE_REMOVED) {
    ClearLocked();
  }
  return hr;
}

HRESULT ImagePipeline::MakeOnDeviceLocked(ID3D11Device* device, const std::uint8_t* pixels) {
  if (device_.Get() != device) {
    ReleaseDeviceObjectsLocked();
    device_ = device;
  }
  image_srv_.Reset();
  image_texture_.Reset();
  // A failure on a device that is gone is a loss: the image waits for the next device.
  auto failure = [device](HRESULT hr, const char* text) {
    if (device->GetDeviceRemovedReason() != S_OK) {
      return DXGI_ERROR_DEVICE_REMOVED;
    }
    PrintError(text);
    return FAILED(hr) ? hr : E_FAIL;
  };
  if (!EnsureShadersLocked(device)) {
    return failure(E_FAIL, "Failed to initialize image shaders");
  }

  D3D11_TEXTURE2D_DESC desc = {};
  desc.Width = static_cast<UINT>(image_width_);
  desc.Height = static_cast<UINT>(image_height_);
  desc.MipLevels = 1;
  desc.ArraySize = 1;
  desc.Format = DXGI_FORMAT_B8G8R8A8_UNORM;
  desc.SampleDesc.Count = 1;
  desc.SampleDesc.Quality = 0;
  desc.Usage = D3D11_USAGE_DEFAULT;
  desc.BindFlags = D3D11_BIND_SHADER_RESOURCE;
  D3D11_SUBRESOURCE_DATA data = {};
  data.pSysMem = pixels;
  data.SysMemPitch = static_cast<UINT>(image_width_) * 4;
  HRESULT hr = device->CreateTexture2D(&desc, &data, image_texture_.ReleaseAndGetAddressOf());
  if (FAILED(hr)) {
    image_texture_.Reset();
    return failure(hr, "Failed to create texture from pixels");
  }

  D3D11_SHADER_RESOURCE_VIEW_DESC view = {};
  view.Format = DXGI_FORMAT_B8G8R8A8_UNORM;
  view.ViewDimension = D3D11_SRV_DIMENSION_TEXTURE2D;
  view.Texture2D.MostDetailedMip = 0;
  view.Texture2D.MipLevels = 1;
  hr = device->CreateShaderResourceView(image_texture_.Get(), &view,
                                        image_srv_.ReleaseAndGetAddressOf());
  if (FAILED(hr)) {
    image_srv_.Reset();
    image_texture_.Reset();
    return failure(hr, "Failed to create SRV from pixels");
  }
  return S_OK;
}

void ImagePipeline::StartAnimation(std::shared_ptr<const FrameList> frames,
                                   const std::vector<std::uint32_t>& delays_ms, TimePoint now) {
  std::lock_guard<RecursiveLock> lock(image_mutex_);
  frames_ = std::move(frames);
  if (frames_ && !frames_->empty()) {
    // The frames hold the pixels from now on.
    still_pixels_ = std::vector<std::uint8_t>();
  }
  frame_delays_ms_ = delays_ms;
  std::uint32_t total = 0;
  for (std::uint32_t delay : frame_delays_ms_) {
    total += delay;
  }
  total_duration_ms_ = total;
  current_frame_ = 0;
  animated_ = total != 0;
  animation_start_ = now;
}

void ImagePipeline::Clear() {
  std::lock_guard<RecursiveLock> lock(image_mutex_);
  ClearLocked();
}

void ImagePipeline::ClearLocked() {
  image_srv_.Reset();
  image_texture_.Reset();
  still_pixels_ = std::vector<std::uint8_t>();
  image_width_ = 0;
  image_height_ = 0;
  animated_ = false;
  frames_.reset();
  frame_delays_ms_.clear();
  total_duration_ms_ = 0;
  current_frame_ = 0;
}

void ImagePipeline::ReleaseGpuObjects() {
  std::lock_guard<RecursiveLock> lock(image_mutex_);
  ClearLocked();
  ReleaseDeviceObjectsLocked();
}

void ImagePipeline::ReleaseDeviceObjectsLocked() {
  image_srv_.Reset();
  image_texture_.Reset();
  vertex_buffer_.Reset();
  input_layout_.Reset();
  pixel_shader_.Reset();
  vertex_shader_.Reset();
  sampler_.Reset();
  shaders_ready_ = false;
  device_.Reset();
}

void ImagePipeline::SetCrop(float x, float y, float w, float h, std::int32_t canvas_width,
                            std::int32_t canvas_height) {
  {
    std::lock_guard<RecursiveLock> lock(image_mutex_);
    crop_.enabled = true;
    crop_.x = x;
    crop_.y = y;
    crop_.w = w;
    crop_.h = h;
    crop_.canvas_width = canvas_width;
    crop_.canvas_height = canvas_height;
  }
  wchar_t line[192];
  std::swprintf(line, sizeof(line) / sizeof(line[0]),
                L"Kestrun: SetCropRect(%f, %f, %f, %f) canvas=%dx%d\n", static_cast<double>(x),
                static_cast<double>(y), static_cast<double>(w), static_cast<double>(h),
                static_cast<int>(canvas_width), static_cast<int>(canvas_height));
  OutputDebugStringW(line);
}

void ImagePipeline::ClearCrop() {
  {
    std::lock_guard<RecursiveLock> lock(image_mutex_);
    crop_ = CropRect();
  }
  OutputDebugStringW(L"Kestrun: ClearCropRect\n");
}

CropRect ImagePipeline::crop() const {
  std::lock_guard<RecursiveLock> lock(image_mutex_);
  return crop_;
}

void ImagePipeline::AdvanceAnimationLocked(ID3D11DeviceContext* context, TimePoint now) {
  if (!animated_ || total_duration_ms_ == 0 || !frames_ || frames_->size() < 2 ||
      !image_texture_) {
    return;
  }
  const auto elapsed_ns =
      std::chrono::duration_cast<std::chrono::nanoseconds>(now - animation_start_).count();
  const std::uint64_t elapsed_ms =
      elapsed_ns > 0 ? static_cast<std::uint64_t>(elapsed_ns / 1000000) : 0;
  const std::size_t index =
      ImageLayout::FrameIndexAt(frame_delays_ms_, total_duration_ms_, elapsed_ms);
  if (index == current_frame_ || index >= frames_->size()) {
    return;
  }
  const std::vector<std::uint8_t>& frame = (*frames_)[index];
  const std::size_t frame_bytes =
      static_cast<std::size_t>(image_width_) * static_cast<std::size_t>(image_height_) * 4;
  if (frame.size() < frame_bytes) {
    return;
  }
  current_frame_ = index;
  context->UpdateSubresource(image_texture_.Get(), 0, nullptr, frame.data(),
                             static_cast<UINT>(image_width_) * 4, 0);
  texture_update_count_.fetch_add(1);
}

void ImagePipeline::BindTarget(ID3D11DeviceContext* context, ID3D11RenderTargetView* target,
                               std::int32_t width, std::int32_t height) {
  context->OMSetRenderTargets(1, &target, nullptr);
  D3D11_VIEWPORT viewport = {};
  viewport.Width = static_cast<float>(width);
  viewport.Height = static_cast<float>(height);
  viewport.MinDepth = 0.0f;
  viewport.MaxDepth = 1.0f;
  context->RSSetViewports(1, &viewport);
}

void ImagePipeline::DrawLocked(ID3D11DeviceContext* context, ID3D11RenderTargetView* target,
                               std::int32_t width, std::int32_t height) {
  if (!image_texture_ || !image_srv_ || !shaders_ready_) {
    return;
  }
  const ImageQuad quad =
      ImageLayout::ComputeQuad(image_width_, image_height_, width, height, fit_mode_, crop_);
  float vertices[kVertexCount * 4];
  ImageLayout::WriteVertices(quad, vertices);
  D3D11_MAPPED_SUBRESOURCE mapped = {};
  if (SUCCEEDED(context->Map(vertex_buffer_.Get(), 0, D3D11_MAP_WRITE_DISCARD, 0, &mapped))) {
    std::memcpy(mapped.pData, vertices, sizeof(vertices));
    context->Unmap(vertex_buffer_.Get(), 0);
  }

  BindTarget(context, target, width, height);
  const float black[4] = {0.0f, 0.0f, 0.0f, 1.0f};
  context->ClearRenderTargetView(target, black);

  context->IASetInputLayout(input_layout_.Get());
  context->IASetPrimitiveTopology(D3D11_PRIMITIVE_TOPOLOGY_TRIANGLELIST);
  ID3D11Buffer* buffer = vertex_buffer_.Get();
  const UINT stride = kVertexStride;
  const UINT offset = 0;
  context->IASetVertexBuffers(0, 1, &buffer, &stride, &offset);
  context->VSSetShader(vertex_shader_.Get(), nullptr, 0);
  context->PSSetShader(pixel_shader_.Get(), nullptr, 0);
  ID3D11ShaderResourceView* view = image_srv_.Get();
  context->PSSetShaderResources(0, 1, &view);
  ID3D11SamplerState* sampler = sampler_.Get();
  context->PSSetSamplers(0, 1, &sampler);
  context->Draw(kVertexCount, 0);
}

}  // namespace native_live_window
