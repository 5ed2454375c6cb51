#include "av/lighting_manager.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

#include "tests/fixtures/mock_lighting_client.h"
#include "platform/exported_object.h"
#include "platform/fake_task_loop.h"
#include "tests/fixtures/log_capture.h"

namespace morvane::ap {
namespace {

using ::testing::_;
using ::testing::ElementsAre;
using ::testing::InSequence;
using ::testing::Pair;
using ::testing::StrictMock;

constexpr int64_t kSecondUs = 1'000'000;

class LightingManagerTest : public testing::Test {
 protected:
  // The manager shows state 0 as soon as it exists.
  void SetUp() override {
    EXPECT_CALL(lighting_, SetState(kLightStateStartup));
    manager_ = std::make_unique<LightingManager>(&loop_, &lighting_, &status_);
    Verify();
  }

  // Moves the clock on; the light calls expected by then must have come.
  void Seconds(int64_t seconds) {
    loop_.FastForwardBy(seconds * kSecondUs);
    Verify();
  }

  void ExpectState(int state) { EXPECT_CALL(lighting_, SetState(state)); }
  void ExpectTransition(int state) {
    EXPECT_CALL(lighting_, SetStateWithTransition(state, 0));
  }
  // Fails the test on an expected light call not made by this point; the
  // strict mock fails any other call as it is made.
  void Verify() { testing::Mock::VerifyAndClearExpectations(&lighting_); }

  bool SetLedState(const std::string& state, const std::string& value,
                   uint32_t seconds) {
    ErrorPtr error;
    const bool ok = manager_->SetLedState(&error, state, value, seconds);
    EXPECT_EQ(error, nullptr);
    return ok;
  }
  uint32_t StartOperation() {
    uint32_t id = 0;
    EXPECT_TRUE(manager_->SetOperationInProgress(nullptr, 77, &id));
    return id;
  }

  FakeTaskLoop loop_;
  StrictMock<MockLightingClient> lighting_;
  // Never on a bus: the adaptor only keeps the values.
  ExportedObject status_object_{nullptr, nullptr,
                                org::tessaly::ap::AudioVisual::kStatusPath};
  org::tessaly::ap::AudioVisual::StatusAdaptor status_{&status_object_};
  std::unique_ptr<LightingManager> manager_;
};

TEST_F(LightingManagerTest, StatusAndLogFollowEachDecision) {
  LogCapture log;
  ExpectState(kLightStateOperation);
  const uint32_t id = StartOperation();
  Verify();

  EXPECT_EQ(status_.light_state().value(), 6u);
  EXPECT_EQ(status_.deciding_input().value(), "vox");
  EXPECT_EQ(status_.last_operation_id().value(), id);
  EXPECT_THAT(status_.timed_states().value(),
              ElementsAre(Pair("vox", "in_progress"), Pair("wan_failure", "")));
  const auto& deadlines = status_.timed_state_deadlines().value();
  // Both started at the same moment: the operation's 30 s, the grace's 60 s.
  EXPECT_EQ(deadlines.at("wan_failure") - deadlines.at("vox"), 30 * kSecondUs);

  ExpectState(kLightStateStartup);
  Seconds(30);
  EXPECT_EQ(status_.deciding_input().value(), "wan_failure");
  EXPECT_THAT(status_.timed_states().value(),
              ElementsAre(Pair("wan_failure", "")));
  // An ended state keeps its deadline inside, but the status drops it.
  EXPECT_THAT(status_.timed_state_deadlines().value(),
              ElementsAre(Pair("wan_failure", _)));

  ExpectState(kLightStateSetup);
  manager_->SetSetupMode(true);
  EXPECT_EQ(status_.deciding_input().value(), "setup_mode");
  EXPECT_TRUE(status_.setup_mode().value());
  EXPECT_THAT(log.Messages(google::GLOG_INFO),
              ElementsAre("Operation 1 started", "Light state 6, decided by vox",
                          "Timed state vox ended",
                          "Light state 0, decided by wan_failure",
                          "Light state 3, decided by setup_mode"));

  // The same timed state again with another value shows the new value.
  ExpectState(kLightStateSetupActivity);
  EXPECT_TRUE(SetLedState("setup_activity", "scan", 10));
  EXPECT_TRUE(SetLedState("setup_activity", "join", 10));
  EXPECT_THAT(status_.timed_states().value(),
              ElementsAre(Pair("setup_activity", "join"),
                          Pair("wan_failure", "")));
}

TEST_F(LightingManagerTest, ConnectionEndsTheGraceForGoodAndSetupOutranksIt) {
  ExpectState(kLightStateOnline);
  manager_->SetConnected(true);
  Verify();
  manager_->SetConnected(true);  // unchanged: nothing sent

  ExpectState(kLightStateSetup);
  manager_->SetSetupMode(true);
  Verify();
  ExpectState(kLightStateOnline);
  manager_->SetSetupMode(false);
  Verify();

  ExpectState(kLightStateWanFailure);  // at once, not after the grace
  manager_->SetConnected(false);
  Verify();
  Seconds(120);
}

TEST_F(LightingManagerTest, SetupActivityShowsOnlyInSetupModeAndExpiresBackToSetup) {
  EXPECT_TRUE(SetLedState("setup_activity", "scanning", 20));  // not in setup: unseen
  Seconds(5);

  ExpectState(kLightStateSetupActivity);
  manager_->SetSetupMode(true);
  Verify();

  ExpectState(kLightStateSetup);
  Seconds(15);

  ExpectState(kLightStateSetupActivity);
  EXPECT_TRUE(SetLedState("setup_activity", "", 1));  // the shortest
  Verify();
  ExpectState(kLightStateSetup);
  Seconds(1);
}

TEST_F(LightingManagerTest, SetupCompletedHoldsOnlineThenShowsWanFailure) {
  ExpectState(kLightStateSetup);
  manager_->SetSetupMode(true);
  Verify();

  ExpectTransition(kLightStateOnline);
  manager_->SetupCompleted();
  Verify();

  // The hold outlasts the start-up grace, which setup completion ended.
  Seconds(29);
  ExpectState(kLightStateWanFailure);
  Seconds(1);
}

TEST_F(LightingManagerTest, OperationShowsForItsLatestStartOrDuration) {
  ExpectState(kLightStateOperation);
  EXPECT_EQ(StartOperation(), 1u);
  Seconds(20);
  EXPECT_EQ(StartOperation(), 2u);
  Verify();
  Seconds(29);
  ExpectState(kLightStateStartup);  // grace still running at 50 s
  Seconds(1);

  ExpectState(kLightStateOperation);
  StartOperation();
  Verify();
  ExpectTransition(kLightStateOperation);
  EXPECT_TRUE(SetLedState("vox", "completed", 5));  // 30 s were left
  Verify();
  ExpectState(kLightStateStartup);
  Seconds(5);

  // The longest duration does not overflow.
  ExpectState(kLightStateOperation);
  EXPECT_TRUE(SetLedState("vox", "in_progress", 4294967295u));
  Verify();
  loop_.FastForwardBy(int64_t{4294967294} * kSecondUs);
  ExpectState(kLightStateWanFailure);
  Seconds(1);
}

TEST_F(LightingManagerTest, SuccessIsSentByTransitionAlwaysFailureOnlyOnChange) {
  ExpectTransition(kLightStateStartup);
  EXPECT_TRUE(manager_->SetOperationSucceeded(nullptr, 12345));
  Verify();

  {
    InSequence s;
    ExpectState(kLightStateOperation);
    ExpectTransition(kLightStateStartup);
    ExpectTransition(kLightStateStartup);
    ExpectState(kLightStateOperation);
    ExpectState(kLightStateStartup);
  }
  StartOperation();
  EXPECT_TRUE(manager_->SetOperationSucceeded(nullptr, 1));
  manager_->ReapplyStateWithTransition();
  StartOperation();
  EXPECT_TRUE(manager_->SetOperationFailed(nullptr, 999));
  EXPECT_TRUE(manager_->SetOperationFailed(nullptr, 1));  // nothing to end
  Verify();
}

TEST_F(LightingManagerTest, ShowsWanFailureAfterTheGraceAndRejectsOtherNames) {
  Seconds(59);
  ExpectState(kLightStateWanFailure);
  Seconds(1);
  LogCapture log;

  for (const char* name : {"wan_failure", "setup_complete", "Vox", "", "vox "}) {
    SCOPED_TRACE(name);
    EXPECT_FALSE(SetLedState(name, "in_progress", 10));
  }

  EXPECT_THAT(log.Messages(google::GLOG_WARNING),
              ElementsAre("Unexpected led state: wan_failure",
                          "Unexpected led state: setup_complete",
                          "Unexpected led state: Vox", "Unexpected led state: ",
                          "Unexpected led state: vox "));
  // Nothing more is scheduled: the rejected calls started neither a state
  // nor its timer.
  Seconds(600);
  EXPECT_EQ(loop_.PendingTaskCount(), 0u);
}

}  // namespace
}  // namespace morvane::ap
