#include "av/lighting_manager.h"

#include <glog/logging.h>

#include <set>
#include <utility>

#include "av/lighting_client.h"
#include "platform/exported_object.h"
#include "platform/exported_object_manager.h"
#include "platform/log_text.h"

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

LightingManager::LightingManager(
    TaskLoop* loop, LightingClient* client,
    org::tessaly::ap::AudioVisual::StatusAdaptor* status)
    : loop_(loop), client_(client), status_(status) {
  client_->SetState(kLightStateStartup);
  status_->light_state().SetValue(kLightStateStartup);
  status_->timed_state_deadlines().SetSource(
      [this] { return TimedStateDeadlines(); });
  SetTimedState(kWanFailure, "", kStartupWanGraceSeconds);
}

// Members go in reverse order: the D-Bus object first, then the adaptor,
// then the timed states, whose timers stop without running.
LightingManager::~LightingManager() {
  status_->timed_state_deadlines().SetSource(nullptr);
}

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
  LOG(INFO) << "Operation " << operation_counter_ << " started";
  status_->last_operation_id().SetValue(operation_counter_);
  return SetLedState(error, kVox, "in_progress", kOperationInProgressSeconds);
}

bool LightingManager::SetOperationSucceeded(ErrorPtr* error,
                                            uint32_t in_operation_id) {
  LOG(INFO) << "Operation " << in_operation_id << " succeeded";
  return SetLedState(error, kVox, "completed", 0);
}

bool LightingManager::SetOperationFailed(ErrorPtr* error,
                                         uint32_t in_operation_id) {
  LOG(INFO) << "Operation " << in_operation_id << " failed";
  return SetLedState(error, kVox, "", 0);
}

bool LightingManager::SetLedState(ErrorPtr*, const std::string& in_state,
                                  const std::string& in_value,
                                  uint32_t in_duration_seconds) {
  if (ValidLedStates().count(in_state) == 0) {
    if (unexpected_state_log_.Allow()) {
      LOG(WARNING) << "Unexpected led state: " << LogText(in_state);
    }
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
    StartTimedState(name, duration_seconds);
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
  StartTimedState(kSetupComplete, kSetupCompleteHoldSeconds);
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

void LightingManager::StartTimedState(const std::string& name,
                                      uint32_t duration_seconds) {
  TimedState& state = State(name);
  state.deadline_us = loop_->WallNow() + SecondsToUs(duration_seconds);
  state.timer.Start(SecondsToUs(duration_seconds), [this, name] {
    LOG(INFO) << "Timed state " << name << " ended";
    UpdateLedState();
  });
}

LightingManager::Decision LightingManager::Decide() {
  if (IsActive(kVox)) return {kLightStateOperation, kVox};
  if (in_setup_) {
    return IsActive(kSetupActivity)
               ? Decision{kLightStateSetupActivity, kSetupActivity}
               : Decision{kLightStateSetup, "setup_mode"};
  }
  if (connected_) return {kLightStateOnline, "connected"};
  if (IsActive(kSetupComplete)) return {kLightStateOnline, kSetupComplete};
  if (IsActive(kWanFailure)) return {kLightStateStartup, kWanFailure};
  return {kLightStateWanFailure, "not_connected"};
}

void LightingManager::UpdateLedState() {
  const Decision decision = Decide();
  if (decision.state != current_state_) {
    client_->SetState(decision.state);
  }
  Report(decision);
}

void LightingManager::ApplyLedStateWithTransition(int transition) {
  const Decision decision = Decide();
  client_->SetStateWithTransition(decision.state, transition);
  Report(decision);
}

void LightingManager::Report(const Decision& decision) {
  if (decision.state != current_state_) {
    LOG(INFO) << "Light state " << decision.state << ", decided by "
              << decision.input;
    current_state_ = decision.state;
  }
  status_->light_state().SetValue(decision.state);
  status_->deciding_input().SetValue(decision.input);
  status_->connected().SetValue(connected_);
  status_->setup_mode().SetValue(in_setup_);
  status_->setup_complete_hold().SetValue(IsActive(kSetupComplete));
  if (!TimedStatesShown()) status_->timed_states().SetValue(TimedStateValues());
}

bool LightingManager::TimedStatesShown() const {
  const std::map<std::string, std::string>& shown =
      status_->timed_states().value();
  size_t running = 0;
  for (const auto& [name, state] : states_) {
    if (!state.timer.IsRunning()) continue;
    ++running;
    const auto it = shown.find(name);
    if (it == shown.end() || it->second != state.value) return false;
  }
  return running == shown.size();
}

std::map<std::string, std::string> LightingManager::TimedStateValues() const {
  std::map<std::string, std::string> values;
  for (const auto& [name, state] : states_) {
    if (state.timer.IsRunning()) values.emplace(name, state.value);
  }
  return values;
}

std::map<std::string, uint64_t> LightingManager::TimedStateDeadlines() const {
  std::map<std::string, uint64_t> deadlines;
  for (const auto& [name, state] : states_) {
    if (state.timer.IsRunning()) {
      deadlines.emplace(name, static_cast<uint64_t>(state.deadline_us));
    }
  }
  return deadlines;
}

}  // namespace morvane::ap
