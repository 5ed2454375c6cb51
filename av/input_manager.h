#ifndef AV_INPUT_MANAGER_H_
#define AV_INPUT_MANAGER_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "av/input_monitor.h"
#include "stubs/pavo/pavo.h"

namespace morvane::ap {

class TaskLoop;

// Turns each press of the touch button into a short click: reads the
// button's input device, named by the platform settings, and plays the
// feedback clip through the audio server, at most once per
// kMinFeedbackInterval of wall-clock time.
//
// Without a device (not set, missing, or it cannot be opened) the manager
// logs why once and does nothing. The audio server is connected at the
// first accepted press and kept; a failed connection is retried at the next
// accepted press. Each failed attempt logs its number; the error's name is
// said at the first failure and the recovery once it connects again.
class InputManager {
 public:
  // Presses closer together than this, in microseconds, give one click.
  static constexpr int64_t kMinFeedbackInterval = 200'000;
  // Headerless PCM: signed 16-bit little-endian, mono, 48000 frames/s.
  static constexpr char kFeedbackAudioPath[] =
      "/usr/share/sounds/ap/touch_feedback.raw";

  // Sets everything up; never fails outward, except that a device with a
  // touch input but no readable feedback clip ends the process. |loop| must
  // outlive this object; its wall clock times the clicks.
  explicit InputManager(TaskLoop* loop);
  InputManager(const InputManager&) = delete;
  InputManager& operator=(const InputManager&) = delete;
  virtual ~InputManager();

  // The touch device read; empty without one (not set, missing, or it
  // could not be opened).
  const std::string& device_path() const { return device_path_; }
  // Whether the touch device is read now: opened, and no read error or end
  // of stream since.
  bool touch_device_in_use() const {
    return input_monitor_ && input_monitor_->reading();
  }
  // Why a touch device that the settings name is not read (escaped outside
  // text); empty while it is read or when none is named.
  const std::string& touch_device_problem() const { return touch_device_problem_; }
  // |callback| runs when reading the touch device stops.
  void SetTouchDeviceStoppedCallback(std::function<void()> callback) {
    touch_device_stopped_callback_ = std::move(callback);
  }
  bool audio_server_connected() const { return pavo_client_ != nullptr; }
  // |callback| runs after each connection to the audio server is made.
  void SetAudioConnectedCallback(std::function<void()> callback) {
    audio_connected_callback_ = std::move(callback);
  }

 private:
  void OnInputEvent(const InputEvent& event);

  TaskLoop* const loop_;
  pavo_client* pavo_client_ = nullptr;
  // Whether the last connection attempt failed: its cause is said once,
  // and once more when a connection succeeds again.
  bool audio_server_failed_ = false;
  std::string device_path_;
  std::function<void()> audio_connected_callback_;
  std::unique_ptr<InputMonitor> input_monitor_;
  std::string feedback_audio_;
  std::string touch_device_problem_;
  std::function<void()> touch_device_stopped_callback_;
  // Wall-clock microseconds of the last press that was allowed to click.
  int64_t last_feedback_time_ = 0;
};

}  // namespace morvane::ap

#endif  // AV_INPUT_MANAGER_H_
