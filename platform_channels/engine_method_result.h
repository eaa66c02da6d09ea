// The MethodResult handed to method call handlers: answers through the messenger's reply.
#ifndef KESTRUN_PLATFORM_CHANNELS_ENGINE_METHOD_RESULT_H_
#define KESTRUN_PLATFORM_CHANNELS_ENGINE_METHOD_RESULT_H_

#include <memory>
#include <string>
#include <utility>

#include "binary_messenger.h"
#include "method_codec.h"
#include "method_result.h"
#include "reply_manager.h"

namespace flutter {

// The first of success, error or not implemented sends the reply; any later one is reported and
// ignored. It may be completed on any thread. A value the codec refuses to write (the reason is
// printed) is answered empty, so the caller is never left waiting.
template <typename T = EncodableValue>
class EngineMethodResult : public MethodResult<T> {
 public:
  EngineMethodResult(BinaryReply reply_handler, const MethodCodec<T>* codec)
      : reply_manager_(std::make_unique<ReplyManager>(std::move(reply_handler))), codec_(codec) {}

 protected:
  void SuccessInternal(const T* result) override {
    std::unique_ptr<std::vector<uint8_t>> data = codec_->EncodeSuccessEnvelope(result);
    reply_manager_->SendResponseData(data.get());
  }
  void ErrorInternal(const std::string& error_code, const std::string& error_message,
                     const T* error_details) override {
    std::unique_ptr<std::vector<uint8_t>> data =
        codec_->EncodeErrorEnvelope(error_code, error_message, error_details);
    reply_manager_->SendResponseData(data.get());
  }
  void NotImplementedInternal() override { reply_manager_->SendResponseData(nullptr); }

 private:
  std::unique_ptr<ReplyManager> reply_manager_;
  const MethodCodec<T>* codec_;
};

}  // namespace flutter

#endif  // KESTRUN_PLATFORM_CHANNELS_ENGINE_METHOD_RESULT_H_
