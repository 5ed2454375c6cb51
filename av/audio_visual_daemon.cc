#include "av/audio_visual_daemon.h"

#include <glog/logging.h>

#include "common/storage.pb.h"
#include "common/upstart_client.h"
#include "platform/async_event_sequencer.h"
#include "platform/file_util.h"
#include "platform/object_proxy.h"
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

  group_monitor_proxy_ = std::make_unique<org::tessaly::ap::GroupMonitorProxy>(
      bus(), org::tessaly::ap::kGroupMonitorServiceName,
      ObjectPath{org::tessaly::ap::kGroupMonitorPath});
  group_monitor_proxy_->SetUpProperties(
      [this](org::tessaly::ap::GroupMonitorProxyInterface* proxy,
             const std::string& name) {
        OnGroupMonitorPropertyChanged(proxy, name);
      });
  group_monitor_proxy_->GetObjectProxy()->SetNameOwnerChangedCallback(
      [this](const std::string& old_owner, const std::string& new_owner) {
        OnGroupMonitorOwnerChanged(old_owner, new_owner);
      });

  vantle_client_ = std::make_unique<VantleClient>(bus());
  vantle_client_->RegisterConnectionStateCallback(
      [this](const std::string& state) { OnWanStateChanged(state); });
}

void AudioVisualDaemon::OnGroupMonitorPropertyChanged(
    org::tessaly::ap::GroupMonitorProxyInterface* proxy, const std::string&) {
  // Whatever changed, the failure is judged from all of it again.
  group_failure_ = proxy->is_root() ? false : !proxy->connected_to_root();
  LOG(INFO) << "Group failure is " << group_failure_;
  lighting_manager_->SetConnected(wan_online_ ? !group_failure_ : false);
}

void AudioVisualDaemon::OnGroupMonitorOwnerChanged(const std::string&,
                                                   const std::string& new_owner) {
  if (!new_owner.empty()) return;
  LOG(INFO) << "Group failure is cleared";
  group_failure_ = false;
  lighting_manager_->SetConnected(wan_online_);
}

void AudioVisualDaemon::OnWanStateChanged(const std::string& state) {
  const bool online = state == "online";
  if (online == wan_online_) return;
  wan_online_ = online;
  lighting_manager_->SetConnected(online ? !group_failure_ : false);
  if (online) {
    // A client of its own for this one event; the call blocks until Upstart
    // answers or the default time-out passes.
    UpstartClient().EmitEvent("ap-wan-online", {}, false);
  }
}

}  // namespace morvane::ap
