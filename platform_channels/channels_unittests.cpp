// The channel layer against the engine stand-in: incoming calls and their replies, outgoing
// calls, event streams, and replies racing engine shutdown.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <test_flutter_engine.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "binary_messenger_impl.h"
#include "event_channel.h"
#include "method_channel.h"
#include "method_result_functions.h"
#include "standard_codec_serializer.h"
#include "standard_method_codec.h"
#include "stream_handler_functions.h"
#include "texture_registrar_impl.h"

namespace flutter {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

const StandardMethodCodec& Codec() { return StandardMethodCodec::GetInstance(); }

std::vector<uint8_t> EncodeCall(const std::string& method, EncodableValue arguments = {}) {
  MethodCall<> call(method, std::make_unique<EncodableValue>(std::move(arguments)));
  return *Codec().EncodeMethodCall(call);
}

// What the interface got back for one delivered message.
struct Reply {
  int count = 0;
  std::vector<uint8_t> bytes;
};

class ChannelsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    FlutterTestReset();
    core_ = FlutterTestCreateMessenger();
    messenger_ = std::make_unique<BinaryMessengerImpl>(core_);
  }
  void TearDown() override {
    messenger_.reset();
    FlutterTestReset();
  }

  int Deliver(const std::string& channel, const std::vector<uint8_t>& bytes) {
    return FlutterTestDeliverMessage(core_, channel.c_str(), bytes.data(), bytes.size());
  }

  static Reply ReplyTo(int token) {
    const uint8_t* data = nullptr;
    size_t size = 0;
    Reply reply;
    reply.count = FlutterTestGetResponse(token, &data, &size);
    reply.bytes.assign(data, data + size);
    return reply;
  }

  struct Sent {
    std::string channel;
    std::vector<uint8_t> bytes;
    bool awaits_reply = false;
  };
  std::vector<Sent> SentMessages() const {
    std::vector<Sent> all;
    for (size_t i = 0; i < FlutterTestSentMessageCount(core_); ++i) {
      const char* channel = nullptr;
      const uint8_t* data = nullptr;
      size_t size = 0;
      bool awaits = false;
      FlutterTestGetSentMessage(core_, i, &channel, &data, &size, &awaits);
      all.push_back({channel, std::vector<uint8_t>(data, data + size), awaits});
    }
    return all;
  }

  FlutterDesktopMessengerRef core_ = nullptr;
  std::unique_ptr<BinaryMessengerImpl> messenger_;
};

// Decodes a reply envelope into a readable outcome: "success:<kind>", "error:<code>:<message>",
// or "not implemented" for an empty reply.
struct Outcome {
  std::string kind;
  EncodableValue value;
  std::string code;
  std::string message;
};
Outcome DecodeReply(const std::vector<uint8_t>& bytes) {
  Outcome outcome;
  if (bytes.empty()) {
    outcome.kind = "not implemented";
    return outcome;
  }
  MethodResultFunctions<> result(
      [&](const EncodableValue* value) {
        outcome.kind = "success";
        if (value != nullptr) {
          outcome.value = *value;
        }
      },
      [&](const std::string& code, const std::string& message, const EncodableValue* details) {
        outcome.kind = "error";
        outcome.code = code;
        outcome.message = message;
        if (details != nullptr) {
          outcome.value = *details;
        }
      },
      [&] { outcome.kind = "not implemented"; });
  if (!Codec().DecodeAndProcessResponseEnvelope(bytes.data(), bytes.size(), &result)) {
    outcome.kind = "undecodable";
  }
  return outcome;
}

// ---- Incoming method calls ---------------------------------------------------------------------

TEST_F(ChannelsTest, CallReachesHandlerWithArgumentsAndIsAnsweredOnce) {
  MethodChannel<> channel(messenger_.get(), "test/channel", &Codec());
  std::string seen_method;
  EncodableValue seen_arguments;
  channel.SetMethodCallHandler([&](const MethodCall<>& call, std::unique_ptr<MethodResult<>> result) {
    seen_method = call.method_name();
    seen_arguments = *call.arguments();
    result->Success(EncodableValue(42));
    result->Success(EncodableValue(43));
    result->Error("LATE", "too late");
    result->NotImplemented();
  });

  testing::internal::CaptureStderr();
  const EncodableMap arguments{{EncodableValue("id"), EncodableValue("display-1")}};
  const int token = Deliver("test/channel", EncodeCall("show", EncodableValue(arguments)));
  const std::string err = testing::internal::GetCapturedStderr();

  EXPECT_EQ(seen_method, "show");
  EXPECT_EQ(seen_arguments, EncodableValue(arguments));
  const Reply reply = ReplyTo(token);
  EXPECT_EQ(reply.count, 1);
  const Outcome outcome = DecodeReply(reply.bytes);
  EXPECT_EQ(outcome.kind, "success");
  EXPECT_EQ(outcome.value, EncodableValue(42));
  const std::string duplicate =
      "Error: Only one of Success, Error, or NotImplemented can be called, and it can be called "
      "exactly once. Ignoring duplicate result.\n";
  EXPECT_EQ(err, duplicate + duplicate + duplicate);
}

TEST_F(ChannelsTest, ErrorAndNotImplementedReplies) {
  MethodChannel<> channel(messenger_.get(), "test/channel", &Codec());
  channel.SetMethodCallHandler([](const MethodCall<>& call, std::unique_ptr<MethodResult<>> result) {
    if (call.method_name() == "fail") {
      result->Error("SHOW_FAILED", "no display", EncodableValue(7));
    } else if (call.method_name() == "fail_plain") {
      result->Error("BAD");
    } else if (call.method_name() == "too_deep") {
      EncodableValue deep;
      for (int i = 0; i <= StandardCodecSerializer::kMaxNestingDepth; ++i) {
        deep = EncodableValue(EncodableList{std::move(deep)});
      }
      result->Success(deep);
    } else {
      result->NotImplemented();
    }
  });

  Outcome error = DecodeReply(ReplyTo(Deliver("test/channel", EncodeCall("fail"))).bytes);
  EXPECT_EQ(error.kind, "error");
  EXPECT_EQ(error.code, "SHOW_FAILED");
  EXPECT_EQ(error.message, "no display");
  EXPECT_EQ(error.value, EncodableValue(7));

  Outcome plain = DecodeReply(ReplyTo(Deliver("test/channel", EncodeCall("fail_plain"))).bytes);
  EXPECT_EQ(plain.kind, "error");
  EXPECT_EQ(plain.message, "");
  EXPECT_TRUE(plain.value.IsNull());

  Reply unknown = ReplyTo(Deliver("test/channel", EncodeCall("whatever")));
  EXPECT_EQ(unknown.count, 1);
  EXPECT_TRUE(unknown.bytes.empty());

  // A value the codec will not write is answered empty, never left waiting or cut short.
  testing::internal::CaptureStderr();
  Reply too_deep = ReplyTo(Deliver("test/channel", EncodeCall("too_deep")));
  EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("Nesting deeper than 256"));
  EXPECT_EQ(too_deep.count, 1);
  EXPECT_TRUE(too_deep.bytes.empty());
}

TEST_F(ChannelsTest, DroppedResultWarnsAndSendsNothing) {
  MethodChannel<> channel(messenger_.get(), "test/channel", &Codec());
  channel.SetMethodCallHandler([](const MethodCall<>&, std::unique_ptr<MethodResult<>>) {});
  testing::internal::CaptureStderr();
  const int token = Deliver("test/channel", EncodeCall("ignored"));
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "Warning: Failed to respond to a message. This is a memory leak.\n");
  EXPECT_EQ(ReplyTo(token).count, 0);
}

TEST_F(ChannelsTest, MalformedCallsAreReportedAndAnsweredEmpty) {
  MethodChannel<> channel(messenger_.get(), "test/channel", &Codec());
  int calls = 0;
  channel.SetMethodCallHandler([&](const MethodCall<>&, std::unique_ptr<MethodResult<>> result) {
    ++calls;
    result->Success();
  });
  const std::vector<std::vector<uint8_t>> malformed = {
      {},                              // nothing at all
      {0x07, 0x05, 'a', 'b'},          // method name cut short
      {0x03, 1, 0, 0, 0, 0x00},        // method name is an int
      {0x07, 0x01, 'm', 0x0d, 0x02},   // arguments map cut short
      {0x07, 0x01, 'm', 0x7f},         // unknown type byte
  };
  for (const auto& bytes : malformed) {
    testing::internal::CaptureStderr();
    Reply reply = ReplyTo(Deliver("test/channel", bytes));
    const std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(reply.count, 1);
    EXPECT_TRUE(reply.bytes.empty());
    EXPECT_THAT(err, HasSubstr("Unable to construct method call from message on channel "
                               "test/channel\n"));
  }
  EXPECT_EQ(calls, 0);
}

TEST_F(ChannelsTest, RemovingTheHandlerLeavesTheEngineToAnswerEmpty) {
  MethodChannel<> channel(messenger_.get(), "test/channel", &Codec());
  channel.SetMethodCallHandler([](const MethodCall<>&, std::unique_ptr<MethodResult<>> result) {
    result->Success();
  });
  EXPECT_TRUE(FlutterTestHasHandler(core_, "test/channel"));
  channel.SetMethodCallHandler(nullptr);
  EXPECT_FALSE(FlutterTestHasHandler(core_, "test/channel"));
  Reply reply = ReplyTo(Deliver("test/channel", EncodeCall("x")));
  EXPECT_EQ(reply.count, 1);
  EXPECT_TRUE(reply.bytes.empty());
}

TEST_F(ChannelsTest, ReplyFromAnotherThreadIsSentUnderTheMessengerLock) {
  MethodChannel<> channel(messenger_.get(), "test/channel", &Codec());
  std::unique_ptr<MethodResult<>> pending;
  channel.SetMethodCallHandler([&](const MethodCall<>&, std::unique_ptr<MethodResult<>> result) {
    pending = std::move(result);
  });
  const int base_refs = FlutterTestMessengerRefCount(core_);
  const int token = Deliver("test/channel", EncodeCall("slow"));
  EXPECT_EQ(ReplyTo(token).count, 0);
  EXPECT_GT(FlutterTestMessengerRefCount(core_), base_refs);  // the reply holds the messenger

  std::thread worker([&] {
    pending->Success(EncodableValue(true));
    pending.reset();
  });
  worker.join();

  EXPECT_EQ(DecodeReply(ReplyTo(token).bytes).value, EncodableValue(true));
  EXPECT_EQ(FlutterTestUnlockedResponseCount(core_), 0);
  EXPECT_EQ(FlutterTestMessengerRefCount(core_), base_refs);
}

TEST_F(ChannelsTest, ReplyAfterShutdownIsDroppedSilently) {
  MethodChannel<> channel(messenger_.get(), "test/channel", &Codec());
  std::unique_ptr<MethodResult<>> pending;
  channel.SetMethodCallHandler([&](const MethodCall<>&, std::unique_ptr<MethodResult<>> result) {
    pending = std::move(result);
  });
  const int token = Deliver("test/channel", EncodeCall("slow"));
  FlutterTestSetMessengerAvailable(core_, false);

  testing::internal::CaptureStderr();
  std::thread worker([&] {
    pending->Success();
    pending.reset();
  });
  worker.join();
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(ReplyTo(token).count, 0);
}

TEST_F(ChannelsTest, RawReplyUsedTwiceIsReportedAndIgnored) {
  messenger_->SetMessageHandler("raw", [](const uint8_t*, size_t, BinaryReply reply) {
    const uint8_t byte = 9;
    BinaryReply copy = reply;
    copy(&byte, 1);
    copy(&byte, 1);
  });
  testing::internal::CaptureStderr();
  const int token = Deliver("raw", {1, 2, 3});
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "Error: Response can be set only once. Ignoring duplicate response.\n");
  EXPECT_EQ(ReplyTo(token).count, 1);
}

// ---- Outgoing method calls ---------------------------------------------------------------------

TEST_F(ChannelsTest, InvokeWithoutResultSendsTheEncodedCallAndAwaitsNothing) {
  MethodChannel<> channel(messenger_.get(), "kestrun/native_window", &Codec());
  channel.InvokeMethod("closeRequested");
  channel.InvokeMethod("withArgs", std::make_unique<EncodableValue>(EncodableList{
                                       EncodableValue(1), EncodableValue("two")}));
  const auto sent = SentMessages();
  ASSERT_EQ(sent.size(), 2u);
  EXPECT_EQ(sent[0].channel, "kestrun/native_window");
  EXPECT_FALSE(sent[0].awaits_reply);
  EXPECT_EQ(sent[0].bytes, EncodeCall("closeRequested"));
  auto decoded = Codec().DecodeMethodCall(sent[1].bytes);
  ASSERT_TRUE(decoded);
  EXPECT_EQ(decoded->method_name(), "withArgs");
  EXPECT_EQ(*decoded->arguments(),
            EncodableValue(EncodableList{EncodableValue(1), EncodableValue("two")}));
}

TEST_F(ChannelsTest, InvokeWithResultRoutesEveryKindOfAnswer) {
  MethodChannel<> channel(messenger_.get(), "test/out", &Codec());
  std::vector<std::string> outcomes;
  auto make_result = [&] {
    return std::make_unique<MethodResultFunctions<>>(
        [&](const EncodableValue* value) {
          outcomes.push_back(value == nullptr ? "success(none)"
                                              : "success(" + std::get<std::string>(*value) + ")");
        },
        [&](const std::string& code, const std::string& message, const EncodableValue*) {
          outcomes.push_back("error(" + code + "," + message + ")");
        },
        [&] { outcomes.push_back("not implemented"); });
  };
  for (int i = 0; i < 5; ++i) {
    channel.InvokeMethod("ask", nullptr, make_result());
  }
  const EncodableValue answer("yes");
  const auto success = *Codec().EncodeSuccessEnvelope(&answer);
  const auto null_success = *Codec().EncodeSuccessEnvelope();
  const auto error = *Codec().EncodeErrorEnvelope("E", "went wrong");
  const std::vector<uint8_t> garbage = {0x05, 0x00};
  ASSERT_TRUE(FlutterTestReplyToSentMessage(core_, 0, success.data(), success.size()));
  ASSERT_TRUE(FlutterTestReplyToSentMessage(core_, 1, null_success.data(), null_success.size()));
  ASSERT_TRUE(FlutterTestReplyToSentMessage(core_, 2, error.data(), error.size()));
  ASSERT_TRUE(FlutterTestReplyToSentMessage(core_, 3, nullptr, 0));
  testing::internal::CaptureStderr();
  ASSERT_TRUE(FlutterTestReplyToSentMessage(core_, 4, garbage.data(), garbage.size()));
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "Unable to decode reply to method invocation on channel test/out\n");
  EXPECT_THAT(outcomes, ElementsAre("success(yes)", "success(none)", "error(E,went wrong)",
                                    "not implemented", "not implemented"));
}

// ---- Event channels ------------------------------------------------------------------------------

class EventChannelTest : public ChannelsTest {
 protected:
  void SetUp() override {
    ChannelsTest::SetUp();
    channel_ = std::make_unique<EventChannel<>>(messenger_.get(), "test/events", &Codec());
  }
  void TearDown() override {
    channel_.reset();
    ChannelsTest::TearDown();
  }

  void InstallRecordingHandler(bool cancel_fails = false, bool listen_fails = false) {
    channel_->SetStreamHandler(std::make_unique<StreamHandlerFunctions<>>(
        [this, listen_fails](const EncodableValue* arguments,
                             std::unique_ptr<EventSink<>>&& events)
            -> std::unique_ptr<StreamHandlerError<>> {
          log_.push_back("listen(" + Describe(arguments) + ")");
          sink_ = std::move(events);
          if (listen_fails) {
            return std::make_unique<StreamHandlerError<>>(
                "NO_DISPLAYS", "nothing to watch", std::make_unique<EncodableValue>(3));
          }
          return nullptr;
        },
        [this, cancel_fails](const EncodableValue* arguments)
            -> std::unique_ptr<StreamHandlerError<>> {
          log_.push_back("cancel(" + Describe(arguments) + ")");
          if (cancel_fails) {
            return std::make_unique<StreamHandlerError<>>("BUSY", "cannot stop", nullptr);
          }
          return nullptr;
        }));
  }

  static std::string Describe(const EncodableValue* arguments) {
    if (arguments == nullptr) {
      return "none";
    }
    if (arguments->IsNull()) {
      return "null";
    }
    if (const auto* text = std::get_if<std::string>(arguments)) {
      return *text;
    }
    return "?";
  }

  Outcome Send(const std::string& method, EncodableValue arguments = {}) {
    return DecodeReply(ReplyTo(Deliver("test/events", EncodeCall(method, std::move(arguments))))
                           .bytes);
  }

  std::unique_ptr<EventChannel<>> channel_;
  std::unique_ptr<EventSink<>> sink_;
  std::vector<std::string> log_;
};

TEST_F(EventChannelTest, ListenGetsArgumentsAndASinkThatSendsOnTheChannel) {
  InstallRecordingHandler();
  EXPECT_EQ(Send("listen", EncodableValue("all")).kind, "success");
  ASSERT_TRUE(sink_);
  sink_->Success(EncodableValue("changed"));
  sink_->Error("WATCH_FAILED", "lost it");
  sink_->EndOfStream();

  const auto sent = SentMessages();
  ASSERT_EQ(sent.size(), 3u);
  for (const auto& message : sent) {
    EXPECT_EQ(message.channel, "test/events");
    EXPECT_FALSE(message.awaits_reply);
  }
  EXPECT_EQ(DecodeReply(sent[0].bytes).value, EncodableValue("changed"));
  EXPECT_EQ(DecodeReply(sent[1].bytes).code, "WATCH_FAILED");
  EXPECT_TRUE(sent[2].bytes.empty());  // end of stream is an empty message
  EXPECT_THAT(log_, ElementsAre("listen(all)"));
}

TEST_F(EventChannelTest, ListenWhileActiveCancelsFirst) {
  InstallRecordingHandler();
  Send("listen", EncodableValue("first"));
  EXPECT_EQ(Send("listen", EncodableValue("second")).kind, "success");
  EXPECT_THAT(log_, ElementsAre("listen(first)", "cancel(none)", "listen(second)"));
}

TEST_F(EventChannelTest, FailedImplicitCancelIsReportedAndListenGoesOn) {
  InstallRecordingHandler(/*cancel_fails=*/true);
  Send("listen");
  testing::internal::CaptureStderr();
  EXPECT_EQ(Send("listen").kind, "success");
  const std::string err = testing::internal::GetCapturedStderr();
  EXPECT_THAT(err, HasSubstr("Failed to cancel existing stream: BUSY, cannot stop, "));
  EXPECT_THAT(log_, ElementsAre("listen(null)", "cancel(none)", "listen(null)"));
}

TEST_F(EventChannelTest, CancelProtocol) {
  InstallRecordingHandler();
  Outcome without_stream = Send("cancel");
  EXPECT_EQ(without_stream.kind, "error");
  EXPECT_EQ(without_stream.code, "error");
  EXPECT_EQ(without_stream.message, "No active stream to cancel");
  EXPECT_TRUE(log_.empty());

  Send("listen");
  EXPECT_EQ(Send("cancel", EncodableValue("bye")).kind, "success");
  EXPECT_EQ(Send("cancel").message, "No active stream to cancel");
  EXPECT_THAT(log_, ElementsAre("listen(null)", "cancel(bye)"));
}

TEST_F(EventChannelTest, ListenAndCancelErrorsBecomeErrorEnvelopes) {
  InstallRecordingHandler(/*cancel_fails=*/true, /*listen_fails=*/true);
  Outcome listen = Send("listen");
  EXPECT_EQ(listen.kind, "error");
  EXPECT_EQ(listen.code, "NO_DISPLAYS");
  EXPECT_EQ(listen.message, "nothing to watch");
  EXPECT_EQ(listen.value, EncodableValue(3));
  Outcome cancel = Send("cancel");
  EXPECT_EQ(cancel.code, "BUSY");
}

TEST_F(EventChannelTest, MissingFunctionsAnswerTheirOwnErrors) {
  channel_->SetStreamHandler(std::make_unique<StreamHandlerFunctions<>>(nullptr, nullptr));
  EXPECT_EQ(Send("listen").message, "No OnListen handler set");
  EXPECT_EQ(Send("cancel").message, "No OnCancel handler set");
}

TEST_F(EventChannelTest, OtherMethodsAndMalformedMessagesAreAnsweredEmpty) {
  InstallRecordingHandler();
  Reply other = ReplyTo(Deliver("test/events", EncodeCall("pause")));
  EXPECT_EQ(other.count, 1);
  EXPECT_TRUE(other.bytes.empty());

  testing::internal::CaptureStderr();
  Reply malformed = ReplyTo(Deliver("test/events", {0x07, 0x09, 'l'}));
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              HasSubstr("Unable to construct method call from message on channel: test/events\n"));
  EXPECT_EQ(malformed.count, 1);
  EXPECT_TRUE(malformed.bytes.empty());
  EXPECT_TRUE(log_.empty());
}

// ---- Textures ----------------------------------------------------------------------------------------

TEST(TextureRegistrarTest, PixelBufferTextureLifecycle) {
  FlutterTestReset();
  FlutterDesktopPluginRegistrarRef registrar = FlutterTestCreateRegistrar();
  FlutterDesktopTextureRegistrarRef core = FlutterTestTextureRegistrarOf(registrar);
  TextureRegistrarImpl textures(core);

  FlutterDesktopPixelBuffer buffer = {};
  size_t asked_width = 0;
  TextureVariant texture(PixelBufferTexture([&](size_t width, size_t) {
    asked_width = width;
    return &buffer;
  }));
  const int64_t id = textures.RegisterTexture(&texture);
  EXPECT_GT(id, 0);
  EXPECT_EQ(FlutterTestCopyPixelBuffer(core, id, 640, 480), &buffer);
  EXPECT_EQ(asked_width, 640u);
  EXPECT_TRUE(textures.MarkTextureFrameAvailable(id));
  EXPECT_EQ(FlutterTestFrameAvailableCount(core, id), 1);

  bool unregistered = false;
  textures.UnregisterTexture(id, [&] { unregistered = true; });
  EXPECT_TRUE(unregistered);
  EXPECT_EQ(FlutterTestTextureCount(core), 0u);
  EXPECT_FALSE(textures.MarkTextureFrameAvailable(id));
  FlutterTestReset();
}

}  // namespace
}  // namespace flutter
