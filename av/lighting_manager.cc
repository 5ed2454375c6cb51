#include "av/lighting_manager.h"

#include <glog/logging.h>

#include <set>
#include <utility>

#include "av/lighting_client.h"
#include "platform/exported_object.h"
#include "platform/exported_object_manager.h"

namespace morvane::ap {
namespace {

constexpr char kVox[] = "vox";
constexpr char kSetupActivity[] = "setup_activity";
constexpr char kSetupComplete[] = "setup_complete";
constexpr char kWanFailure[] = "wan_failure";

// The names other daemons may raise; "setup_complete" and "wan_failure"
// are the manager's own.
const std::set<std::string>& ValidLedStates() {
  static const std::set<std::string> kValidLedStates = {kSetupActivity, kVox};
  return kValidLedStates;
}

int64_t SecondsToUs(uint32_t seconds) {
  return static_cast<int64_t>(seconds) * 1'000'000;
}

}  // namespace

LightingManager::LightingManager(TaskLoop* loop, LightingClient* client)
    : loop_(loop), client_(client) {
  client_->SetState(kLightStateStartup);
  SetTimedState(kWanFailure, "", kStartupWanGraceSeconds);
}

// Members go in reverse order: the D-Bus object first, then the adaptor,
// then the timed states, whose timers stop without running.
LightingManager::~LightingManager() = default;

void LightingManager::RegisterAsync(ExportedObjectManager* object_manager,
                                    std::function<void(bool)> completion) {
  adaptor_ = std::make_unique<org::tessaly::ap::AudioVisual::ManagerAdaptor>(this);
  dbus_object_ = std::make_unique<ExportedObject>(
      object_manager, object_manager->bus(),
      org::tessaly::ap::AudioVisual::kManagerPath);
  adaptor_->RegisterWithDBusObject(dbus_object_.get());
  dbus_object_->RegisterAsync(std::move(completion));
}

bool LightingManager::SetOperationInProgress(ErrorPtr* error, uint32_t,
                                             uint32_t* out_operation_id) {
  *out_operation_id = ++operation_counter_;
  return SetLedState(error, kVox, "in_progress", kOperationInProgressSeconds);
}

bool LightingManager::SetOperationSucceeded(ErrorPtr* error, uint32_t) {
  return SetLedState(error, kVox, "completed", 0);
}

bool LightingManager::SetOperationFailed(ErrorPtr* error, uint32_t) {
  return SetLedState(error, kVox, "", 0);
}

bool LightingManager::SetLedState(ErrorPtr*, const std::string& in_state,
                                  const std::string& in_value,
                                  uint32_t in_duration_seconds) {
  if (ValidLedStates().count(in_state) == 0) {
    LOG(WARNING) << "Unexpected led state: " << in_state;
    return false;
  }
  SetTimedState(in_state, in_value, in_duration_seconds);
  return true;
}

void LightingManager::SetTimedState(const std::string& name,
                                    const std::string& value,
                                    uint32_t duration_seconds) {
  TimedState& state = State(name);
  state.value = value;
  if (duration_seconds != 0) {
    state.timer.Start(SecondsToUs(duration_seconds), [this] { UpdateLedState(); });
  } else {
    state.timer.Stop();
  }
  if (name == kVox && value == "completed") {
    ApplyLedStateWithTransition(0);
  } else {
    UpdateLedState();
  }
}

void LightingManager::SetupCompleted() {
  in_setup_ = false;
  State(kWanFailure).timer.Stop();
  State(kSetupComplete).timer.Start(SecondsToUs(kSetupCompleteHoldSeconds),
                                    [this] { UpdateLedState(); });
  ApplyLedStateWithTransition(0);
}

void LightingManager::SetSetupMode(bool in_setup) {
  in_setup_ = in_setup;
  UpdateLedState();
}

void LightingManager::SetConnected(bool connected) {
  connected_ = connected;
  if (connected) State(kWanFailure).timer.Stop();
  UpdateLedState();
}

void LightingManager::ReapplyStateWithTransition() {
  ApplyLedStateWithTransition(0);
}

LightingManager::TimedState& LightingManager::State(const std::string& name) {
  return states_.try_emplace(name, loop_).first->second;
}

LightState LightingManager::ComputeLightState() {
  if (IsActive(kVox)) return kLightStateOperation;
  if (in_setup_) {
    return IsActive(kSetupActivity) ? kLightStateSetupActivity : kLightStateSetup;
  }
  if (connected_) return kLightStateOnline;
  if (IsActive(kSetupComplete)) return kLightStateOnline;
  if (IsActive(kWanFailure)) return kLightStateStartup;
  return kLightStateWanFailure;
}

void LightingManager::UpdateLedState() {
  const LightState state = ComputeLightState();
  if (state == current_state_) return;
  current_state_ = state;
  client_->SetState(state);
}

void LightingManager::ApplyLedStateWithTransition(int transition) {
  current_state_ = ComputeLightState();
  client_->SetStateWithTransition(current_state_, transition);
}

}  // namespace morvane::ap
