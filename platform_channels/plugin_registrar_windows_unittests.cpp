// Windows half of the channel layer against the engine stand-in: top-level window procedure
// delegates, plugin ownership, engine and view controller lifecycle.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <test_flutter_engine.h>

#include <memory>
#include <string>
#include <vector>

#include "flutter_engine.h"
#include "flutter_view_controller.h"
#include "plugin_registrar_manager.h"
#include "plugin_registrar_windows.h"

namespace flutter {
namespace {

using ::testing::ElementsAre;

class RegistrarWindowsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    FlutterTestReset();
    core_ = FlutterTestCreateRegistrar();
    registrar_ = std::make_unique<PluginRegistrarWindows>(core_);
  }
  void TearDown() override {
    registrar_.reset();
    FlutterTestReset();
  }

  bool Dispatch(UINT message, LRESULT* result) {
    return FlutterTestDispatchTopLevelMessage(core_, nullptr, message, 0, 0, result);
  }

  FlutterDesktopPluginRegistrarRef core_ = nullptr;
  std::unique_ptr<PluginRegistrarWindows> registrar_;
};

TEST_F(RegistrarWindowsTest, DelegateIdsAndEngineRegistrationFollowFirstAndLast) {
  EXPECT_EQ(FlutterTestTopLevelDelegateCount(core_), 0);
  auto none = [](HWND, UINT, WPARAM, LPARAM) -> std::optional<LRESULT> { return std::nullopt; };
  const int first = registrar_->RegisterTopLevelWindowProcDelegate(none);
  const int second = registrar_->RegisterTopLevelWindowProcDelegate(none);
  const int third = registrar_->RegisterTopLevelWindowProcDelegate(none);
  EXPECT_EQ(first, 1);
  EXPECT_EQ(second, 2);
  EXPECT_EQ(third, 3);
  // One engine-level delegate, however many are registered here.
  EXPECT_EQ(FlutterTestTopLevelDelegateCount(core_), 1);

  registrar_->UnregisterTopLevelWindowProcDelegate(second);
  registrar_->UnregisterTopLevelWindowProcDelegate(first);
  registrar_->UnregisterTopLevelWindowProcDelegate(first);  // unknown id: ignored
  EXPECT_EQ(FlutterTestTopLevelDelegateCount(core_), 1);
  registrar_->UnregisterTopLevelWindowProcDelegate(third);
  EXPECT_EQ(FlutterTestTopLevelDelegateCount(core_), 0);

  // Ids keep increasing after the set was empty.
  EXPECT_EQ(registrar_->RegisterTopLevelWindowProcDelegate(none), 4);
  EXPECT_EQ(FlutterTestTopLevelDelegateCount(core_), 1);
}

TEST_F(RegistrarWindowsTest, DelegatesRunInRegistrationOrderAndTheFirstAnswerWins) {
  std::vector<std::string> calls;
  registrar_->RegisterTopLevelWindowProcDelegate(
      [&](HWND, UINT, WPARAM, LPARAM) -> std::optional<LRESULT> {
        calls.push_back("a");
        return std::nullopt;
      });
  registrar_->RegisterTopLevelWindowProcDelegate(
      [&](HWND, UINT message, WPARAM, LPARAM) -> std::optional<LRESULT> {
        calls.push_back("b");
        if (message == WM_CLOSE) {
          return 7;
        }
        return std::nullopt;
      });
  registrar_->RegisterTopLevelWindowProcDelegate(
      [&](HWND, UINT, WPARAM, LPARAM) -> std::optional<LRESULT> {
        calls.push_back("c");
        return 9;
      });

  LRESULT result = 0;
  EXPECT_TRUE(Dispatch(WM_CLOSE, &result));
  EXPECT_EQ(result, 7);
  EXPECT_THAT(calls, ElementsAre("a", "b"));

  calls.clear();
  EXPECT_TRUE(Dispatch(WM_SIZE, &result));
  EXPECT_EQ(result, 9);
  EXPECT_THAT(calls, ElementsAre("a", "b", "c"));
}

TEST_F(RegistrarWindowsTest, UnansweredMessageIsNotHandled) {
  registrar_->RegisterTopLevelWindowProcDelegate(
      [](HWND, UINT, WPARAM, LPARAM) -> std::optional<LRESULT> { return std::nullopt; });
  LRESULT result = 12345;
  EXPECT_FALSE(Dispatch(WM_DISPLAYCHANGE, &result));
  EXPECT_EQ(result, 12345);
}

TEST_F(RegistrarWindowsTest, DelegateMayUnregisterItselfAndOthersWhileRunning) {
  std::vector<std::string> calls;
  int first = 0;
  int third = 0;
  first = registrar_->RegisterTopLevelWindowProcDelegate(
      [&](HWND, UINT, WPARAM, LPARAM) -> std::optional<LRESULT> {
        calls.push_back("first");
        registrar_->UnregisterTopLevelWindowProcDelegate(first);
        registrar_->UnregisterTopLevelWindowProcDelegate(third);
        return std::nullopt;
      });
  registrar_->RegisterTopLevelWindowProcDelegate(
      [&](HWND, UINT, WPARAM, LPARAM) -> std::optional<LRESULT> {
        calls.push_back("second");
        return std::nullopt;
      });
  third = registrar_->RegisterTopLevelWindowProcDelegate(
      [&](HWND, UINT, WPARAM, LPARAM) -> std::optional<LRESULT> {
        calls.push_back("third");
        return std::nullopt;
      });
  LRESULT result = 0;
  EXPECT_FALSE(Dispatch(WM_SIZE, &result));
  EXPECT_FALSE(Dispatch(WM_SIZE, &result));
  EXPECT_THAT(calls, ElementsAre("first", "second", "second"));
}

// A plugin that registers a delegate and removes it when destroyed, as plugins here do.
class RecordingPlugin : public Plugin {
 public:
  RecordingPlugin(PluginRegistrarWindows* registrar, std::vector<std::string>* log)
      : registrar_(registrar), log_(log) {
    delegate_id_ = registrar_->RegisterTopLevelWindowProcDelegate(
        [](HWND, UINT, WPARAM, LPARAM) -> std::optional<LRESULT> { return std::nullopt; });
  }
  ~RecordingPlugin() override {
    registrar_->UnregisterTopLevelWindowProcDelegate(delegate_id_);
    log_->push_back("plugin destroyed");
  }

 private:
  PluginRegistrarWindows* registrar_;
  std::vector<std::string>* log_;
  int delegate_id_ = -1;
};

TEST(PluginRegistrarManagerTest, EngineDestructionDestroysTheRegistrarAndItsPlugins) {
  FlutterTestReset();
  std::vector<std::string> log;
  FlutterDesktopPluginRegistrarRef core = FlutterTestCreateRegistrar();
  auto* manager = PluginRegistrarManager::GetInstance();
  auto* registrar = manager->GetRegistrar<PluginRegistrarWindows>(core);
  EXPECT_EQ(manager->GetRegistrar<PluginRegistrarWindows>(core), registrar);
  registrar->AddPlugin(std::make_unique<RecordingPlugin>(registrar, &log));
  EXPECT_EQ(FlutterTestTopLevelDelegateCount(core), 1);

  FlutterTestDestroyRegistrar(core);
  EXPECT_THAT(log, ElementsAre("plugin destroyed"));
  EXPECT_EQ(FlutterTestTopLevelDelegateCount(core), 0);
  manager->Reset();
  FlutterTestReset();
}

// ---- Engine and view controller -----------------------------------------------------------------

class EngineTest : public ::testing::Test {
 protected:
  void SetUp() override {
    FlutterTestReset();
    PluginRegistrarManager::GetInstance()->Reset();
  }
  void TearDown() override {
    PluginRegistrarManager::GetInstance()->Reset();
    FlutterTestReset();
  }
};

TEST_F(EngineTest, ViewControllerRunsTheEngineWithTheProjectAndDestroysIt) {
  DartProject project(L"data");
  project.set_dart_entrypoint_arguments({"--presenter", "show.kst", ""});
  {
    FlutterViewController controller(1280, 720, project);
    ASSERT_NE(controller.engine(), nullptr);
    ASSERT_NE(controller.view(), nullptr);
    FlutterDesktopEngineRef engine = FlutterTestLastEngine();
    EXPECT_TRUE(FlutterTestEngineIsRunning(engine));
    EXPECT_STREQ(FlutterTestEngineAssetsPath(engine), L"data\\flutter_assets");
    ASSERT_EQ(FlutterTestEngineArgumentCount(engine), 3);
    EXPECT_STREQ(FlutterTestEngineArgument(engine, 0), "--presenter");
    EXPECT_STREQ(FlutterTestEngineArgument(engine, 1), "show.kst");
    EXPECT_STREQ(FlutterTestEngineArgument(engine, 2), "");

    // The engine runs, so registrars are handed out.
    EXPECT_EQ(controller.engine()->GetRegistrarForPlugin("KestrunDisplayPlugin"),
              FlutterTestRegistrarOf(engine));
    controller.ForceRedraw();
    EXPECT_EQ(FlutterTestForceRedrawCount(engine), 1);
    EXPECT_EQ(FlutterTestLiveEngineCount(), 1);
  }
  EXPECT_EQ(FlutterTestLiveEngineCount(), 0);
}

TEST_F(EngineTest, FailedViewControllerLeavesEngineAndViewEmpty) {
  FlutterTestFailNextViewControllerCreate();
  testing::internal::CaptureStderr();
  FlutterViewController controller(800, 600, DartProject(L"data"));
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "Failed to create view controller.\n");
  EXPECT_EQ(controller.engine(), nullptr);
  EXPECT_EQ(controller.view(), nullptr);
  EXPECT_EQ(FlutterTestLiveEngineCount(), 0);
  EXPECT_FALSE(controller.HandleTopLevelWindowProc(nullptr, WM_CLOSE, 0, 0).has_value());
}

TEST_F(EngineTest, FailedEngineCreationAlsoFailsTheViewController) {
  FlutterTestFailNextEngineCreate();
  testing::internal::CaptureStderr();
  FlutterViewController controller(800, 600, DartProject(L"data"));
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "Failed to create view controller.\n");
  EXPECT_EQ(controller.engine(), nullptr);
}

TEST_F(EngineTest, StandaloneEngineRunsOnceAndHandsOutRegistrarsOnlyWhileRunning) {
  FlutterEngine engine(DartProject(L"data"));
  testing::internal::CaptureStderr();
  EXPECT_EQ(engine.GetRegistrarForPlugin("Early"), nullptr);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "Cannot get plugin registrar on an engine that isn't running; call Run first.\n");
  EXPECT_TRUE(engine.Run());
  testing::internal::CaptureStderr();
  EXPECT_FALSE(engine.Run());
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "Cannot run an engine more than once.\n");
  EXPECT_NE(engine.GetRegistrarForPlugin("Later"), nullptr);
  engine.ShutDown();
  EXPECT_EQ(FlutterTestLiveEngineCount(), 0);
}

TEST_F(EngineTest, NextFrameCallbackRunsOnceAndTopLevelMessagesReachDelegates) {
  FlutterViewController controller(640, 480, DartProject(L"data"));
  FlutterDesktopEngineRef engine = FlutterTestLastEngine();
  int frames = 0;
  controller.engine()->SetNextFrameCallback([&] { ++frames; });
  EXPECT_TRUE(FlutterTestFireNextFrame(engine));
  EXPECT_FALSE(FlutterTestFireNextFrame(engine));
  EXPECT_EQ(frames, 1);

  auto* registrar = PluginRegistrarManager::GetInstance()->GetRegistrar<PluginRegistrarWindows>(
      controller.engine()->GetRegistrarForPlugin("KestrunDisplayPlugin"));
  ASSERT_NE(registrar->GetView(), nullptr);
  registrar->RegisterTopLevelWindowProcDelegate(
      [](HWND, UINT message, WPARAM, LPARAM) -> std::optional<LRESULT> {
        if (message == WM_DISPLAYCHANGE) {
          return 5;
        }
        return std::nullopt;
      });
  EXPECT_EQ(controller.HandleTopLevelWindowProc(nullptr, WM_DISPLAYCHANGE, 0, 0), LRESULT(5));
  EXPECT_FALSE(controller.HandleTopLevelWindowProc(nullptr, WM_SIZE, 0, 0).has_value());
}

}  // namespace
}  // namespace flutter
