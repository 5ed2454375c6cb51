#ifndef AV_LIGHTING_MANAGER_H_
#define AV_LIGHTING_MANAGER_H_

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "dbus/manager_adaptor.h"
#include "dbus/status_adaptor.h"
#include "platform/log_rate_limit.h"
#include "platform/timer.h"

namespace morvane::ap {

class ExportedObject;
class ExportedObjectManager;
class LightingClient;
class TaskLoop;

// The integer handed to the light-control library. 5 is never sent; the
// numbering is the library's.
enum LightState : int {
  kLightStateStartup = 0,
  kLightStateOnline = 1,
  kLightStateWanFailure = 2,
  kLightStateSetup = 3,
  kLightStateSetupActivity = 4,
  kLightStateOperation = 6,
};

// Decides the one light state the ring shows, from the setup and network
// flags reported by the daemon and from named timed states, and sends it to
// the light device. Also implements the D-Bus Manager interface through
// which other daemons report operations and raise timed states.
//
// Priority, first match wins: "vox" running -> 6; in setup -> 4 while
// "setup_activity" runs, else 3; connected -> 1; "setup_complete" hold
// running -> 1; "wan_failure" grace running -> 0; otherwise 2. The status
// object shows the state with the input that decided it, the inputs and the
// running timed states; each change of the state is logged with its input.
class LightingManager : public org::tessaly::ap::AudioVisual::ManagerInterface {
 public:
  static constexpr uint32_t kOperationInProgressSeconds = 30;
  static constexpr uint32_t kStartupWanGraceSeconds = 60;
  static constexpr uint32_t kSetupCompleteHoldSeconds = 30;

  // Sends state 0 at once and starts the 60 s start-up grace. |loop|,
  // |client| and |status| must outlive the manager.
  LightingManager(TaskLoop* loop, LightingClient* client,
                  org::tessaly::ap::AudioVisual::StatusAdaptor* status);
  LightingManager(const LightingManager&) = delete;
  LightingManager& operator=(const LightingManager&) = delete;
  // Removes the D-Bus object and stops every timer; the light device is
  // told nothing.
  ~LightingManager() override;

  // Exports the Manager object under |object_manager|. |completion| runs
  // later on the loop with the outcome.
  void RegisterAsync(ExportedObjectManager* object_manager,
                     std::function<void(bool success)> completion);

  // org.tessaly.ap.AudioVisual.Manager. SetLedState accepts the names
  // "vox" and "setup_activity" only; any other name is logged and refused
  // with false, leaving |error| empty and nothing changed.
  bool SetOperationInProgress(ErrorPtr* error, uint32_t in_ignored,
                              uint32_t* out_operation_id) override;
  bool SetOperationSucceeded(ErrorPtr* error,
                             uint32_t in_operation_id) override;
  bool SetOperationFailed(ErrorPtr* error, uint32_t in_operation_id) override;
  bool SetLedState(ErrorPtr* error, const std::string& in_state,
                   const std::string& in_value,
                   uint32_t in_duration_seconds) override;

  // Stores |value| for |name| and runs its timer for |duration_seconds|
  // (restarting a running one), or stops it when the duration is 0. "vox"
  // with "completed" is then shown through the transition call even if the
  // state did not change; everything else only on change.
  void SetTimedState(const std::string& name, const std::string& value,
                     uint32_t duration_seconds);

  // Setup has just completed: leaves setup mode, ends the start-up grace,
  // holds state 1 for 30 s and shows the state through the transition call.
  void SetupCompleted();

  void SetSetupMode(bool in_setup);

  // The network is healthy. The first true ends the start-up grace for good:
  // a later false shows state 2 at once.
  void SetConnected(bool connected);

  // Sends the current state again through the transition call.
  void ReapplyStateWithTransition();

 private:
  struct TimedState {
    explicit TimedState(TaskLoop* loop) : timer(loop) {}
    std::string value;
    OneShotTimer timer;
    // Wall-clock microseconds at which the running timer ends.
    int64_t deadline_us = 0;
  };
  // A light state and the name of the input that decided it.
  struct Decision {
    LightState state;
    const char* input;
  };

  // Lookup-or-insert: a missing name gets an empty value and an idle timer.
  TimedState& State(const std::string& name);
  bool IsActive(const std::string& name) { return State(name).timer.IsRunning(); }

  // Starts |name|'s timer; when it ends the state is shown again.
  void StartTimedState(const std::string& name, uint32_t duration_seconds);
  Decision Decide();
  void UpdateLedState();
  void ApplyLedStateWithTransition(int transition);
  // Logs a change of the light state; then sets every status property the
  // manager holds.
  void Report(const Decision& decision);
  // Whether the status shows the running timed states with their values:
  // a repeated request changes nothing there, and this costs no copy.
  bool TimedStatesShown() const;
  std::map<std::string, std::string> TimedStateValues() const;
  // Computed when a client asks: a repeated request moves its deadline.
  std::map<std::string, uint64_t> TimedStateDeadlines() const;

  TaskLoop* const loop_;
  LightingClient* const client_;
  org::tessaly::ap::AudioVisual::StatusAdaptor* const status_;
  uint32_t operation_counter_ = 0;
  int current_state_ = kLightStateStartup;
  bool in_setup_ = false;
  bool connected_ = false;
  std::map<std::string, TimedState> states_;
  // Any caller may send unknown names as fast as it likes.
  LogRateLimit unexpected_state_log_{loop_, "Unexpected led state"};
  std::unique_ptr<org::tessaly::ap::AudioVisual::ManagerAdaptor> adaptor_;
  std::unique_ptr<ExportedObject> dbus_object_;
};

}  // namespace morvane::ap

#endif  // AV_LIGHTING_MANAGER_H_
