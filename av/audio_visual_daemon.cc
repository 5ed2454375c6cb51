#include "av/audio_visual_daemon.h"

#include <glog/logging.h>

#include "common/storage.pb.h"
#include "platform/async_event_sequencer.h"
#include "platform/file_util.h"
#include "platform/sysroot.h"
#include "stubs/lightcontrol/lightcontrol.h"

namespace morvane::ap {
namespace {

// Lets a developer device behave as a verified one.
const std::string& SimulateVerifiedModePath() {
  static const std::string kPath =
      SysrootPath("/usr/local/etc/ap/simulate-verified-mode");
  return kPath;
}

// A developer device is one where "is_developer_end_user" succeeds, unless
// the marker file asks for verified behaviour. A missing or failing command
// means a verified device; that is not worth a message.
bool IsDeveloperMode() {
  return RunCommand({"is_developer_end_user"}) &&
         !PathExists(SimulateVerifiedModePath());
}

}  // namespace

AudioVisualDaemon::AudioVisualDaemon()
    : ServiceDaemon(kServiceName, kRootPath) {}

AudioVisualDaemon::~AudioVisualDaemon() = default;

void AudioVisualDaemon::RegisterServiceObjects(AsyncEventSequencer* sequencer) {
  metrics_library_.Init();

  const std::string kNetworkCreationAudioFilename =
      SysrootPath("/usr/share/sounds/ap/network_creation.raw");
  CHECK(ReadFileToString(kNetworkCreationAudioFilename, &system_setup_audio_))
      << "Failed to read file: " << kNetworkCreationAudioFilename;

  light_init(IsDeveloperMode());
  // The record's default intensity, passed raw: the first configuration
  // replaces it with the scaled value.
  light_set_master_brightness(DeviceConfiguration().light_intensity());

  lighting_client_ = std::make_unique<LightingClient>();
  lighting_manager_ =
      std::make_unique<LightingManager>(loop(), lighting_client_.get());
  lighting_manager_->RegisterAsync(
      object_manager(),
      sequencer->GetHandler("Manager.RegisterAsync() failed.", true));

  input_manager_ = std::make_unique<InputManager>(loop());
}

}  // namespace morvane::ap
