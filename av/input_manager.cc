#include "av/input_manager.h"

#include <linux/input.h>

#include <glog/logging.h>
#include <string.h>

#include "common/platform_settings.h"
#include "platform/file_util.h"
#include "platform/log_text.h"
#include "platform/sysroot.h"
#include "platform/task_loop.h"

namespace morvane::ap {
namespace {

// How the audio server's client library names the clip's destination and
// format.
constexpr int kInternalSpeaker = 0;
constexpr int kOutput = 0;
constexpr int kFormatS16Le = 2;  // ALSA's number for signed 16-bit LE.
constexpr int kFeedbackRate = 48000;
constexpr int kFeedbackChannels = 1;

// "ECONNREFUSED (Connection refused)" for -111.
std::string DescribeError(int result) {
  const char* name = strerrorname_np(-result);
  if (!name) return "error " + std::to_string(result);
  return std::string(name) + " (" + strerror(-result) + ")";
}

}  // namespace

InputManager::InputManager(TaskLoop* loop) : loop_(loop) {
  const std::string device_path = PlatformSettings().GetTouchInputEventPath();
  if (device_path.empty()) {
    LOG(INFO) << "No input device provided";
    return;
  }
  if (!PathExists(device_path)) {
    LOG(WARNING) << "Input device not found";
    LOG(WARNING) << "Touch input device " << LogText(device_path)
                 << " does not exist; going on without touch input";
    touch_device_problem_ = LogText(device_path) + " does not exist";
    return;
  }
  input_monitor_ = std::make_unique<InputMonitor>(
      loop_, device_path,
      [this](const InputEvent& event) { OnInputEvent(event); });
  ErrorPtr error;
  if (!input_monitor_->Start(&error)) {
    LOG(WARNING) << "Failed to start input monitor: " << LogText(error->message());
    touch_device_problem_ = LogText(error->message());
    input_monitor_.reset();
    return;
  }
  input_monitor_->set_stopped_callback([this](const std::string& why) {
    touch_device_problem_ = why;
    if (touch_device_stopped_callback_) touch_device_stopped_callback_();
  });
  device_path_ = device_path;
  // A device with a touch input must have the clip too.
  const std::string clip_path = SysrootPath(kFeedbackAudioPath);
  PCHECK(ReadFileToString(clip_path, &feedback_audio_))
      << "Failed to read file: " << clip_path;
}

InputManager::~InputManager() {
  if (pavo_client_) pavo_client_destroy(pavo_client_);
}

void InputManager::OnInputEvent(const InputEvent& event) {
  if (event.type != EV_KEY || event.value != 1) return;
  LOG(INFO) << "Button down: " << event.code;

  // The time of reading, not the event's own: a click must follow the press
  // the user feels now. A clock that went back also keeps it quiet until
  // the interval has passed since the stored time.
  const int64_t now = loop_->WallNow();
  if (now - last_feedback_time_ < kMinFeedbackInterval) return;
  // Before connecting: a failed connection starts a quiet period too.
  last_feedback_time_ = now;

  if (!pavo_client_) {
    const int result = pavo_helper_create_connect(&pavo_client_);
    if (result != 0) {
      LOG(WARNING) << "Failed to create pavo client: " << result;
      if (!audio_server_failed_) {
        LOG(WARNING) << "Failed to connect to the audio server: "
                     << DescribeError(result) << "; each press tries again";
      }
      audio_server_failed_ = true;
      pavo_client_ = nullptr;
      return;
    }
    if (audio_server_failed_) LOG(INFO) << "Connected to the audio server";
    audio_server_failed_ = false;
    if (audio_connected_callback_) audio_connected_callback_();
  }
  const int device = pavo_client_get_first_dev_type_idx(
      pavo_client_, kInternalSpeaker, kOutput);
  const int result = pavo_helper_play_buffer(
      pavo_client_, feedback_audio_.data(), feedback_audio_.size() / 2,
      kFormatS16Le, kFeedbackRate, kFeedbackChannels, device);
  if (result != 0) LOG(WARNING) << "Failed to play feedback: " << result;
}

}  // namespace morvane::ap
