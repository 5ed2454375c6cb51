#include "av/audio_visual_daemon.h"

#include <dlfcn.h>
#include <glog/logging.h>

#include <cstdint>
#include <cstring>
#include <map>
#include <utility>

#include "av/prioritized_device.h"
#include "av/proximity_calibration.h"
#include "avd_version.h"
#include "common/storage.pb.h"
#include "common/upstart_client.h"
#include "platform/async_event_sequencer.h"
#include "platform/file_util.h"
#include "platform/log_text.h"
#include "platform/object_proxy.h"
#include "platform/sysroot.h"
#include "stubs/lightcontrol/lightcontrol.h"

namespace morvane::ap {
namespace {

constexpr int64_t kAmbientLightSamplingUs = 2'000'000;
constexpr int64_t kGestureMonitorRetryUs = 3'000'000;
constexpr char kVpdCachePath[] = "/var/cache/vpd/full-v2.txt";
// Fixed: the sensor is always the first IIO device, whatever path the light
// library gives for its events.
constexpr char kProximitySysfsDir[] = "/sys/bus/iio/devices/iio:device0/";
constexpr char kPrioritizeEventMetric[] = "AccessPoint.PrioritizeEvent";
constexpr int kPrioritized = 1;
constexpr int kNothingToPrioritize = 2;
constexpr int kPrioritizeEventMax = 3;
// The clips are signed 16-bit little-endian PCM at 48000 frames a second;
// the network-creation clip has two channels.
constexpr int kSampleFormatS16Le = 2;
constexpr int kSampleRate = 48000;
constexpr int kNetworkCreationChannels = 2;
// The first output device of the internal speaker.
constexpr int kInternalSpeaker = 0;
constexpr int kOutput = 0;

// The configured intensity (percent) on the 0..255 scale of the master
// brightness, in the 32-bit arithmetic of the record's field: 30 gives 76,
// 100 gives 255, and 101 wraps to 1.
uint8_t ScaleIntensity(int32_t percent) {
  const auto product =
      static_cast<int32_t>(static_cast<uint32_t>(percent) * 255u);
  return static_cast<uint8_t>(product / 100);
}

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

// The file of the light library in use, which tells a stand-in from a
// board's library.
std::string LightLibraryFile() {
  Dl_info info{};
  if (!dladdr(reinterpret_cast<void*>(&light_init), &info) ||
      !info.dli_fname) {
    return "unknown";
  }
  return info.dli_fname;
}

}  // namespace

AudioVisualDaemon::AudioVisualDaemon()
    : ServiceDaemon(kServiceName, kRootPath) {}

AudioVisualDaemon::~AudioVisualDaemon() {
  // The audio connection is left open on purpose: the process is about to
  // exit. It stays held here so that leak checkers see it as kept, not lost.
  [[maybe_unused]] static pavo_client* volatile left_open = nullptr;
  if (pavo_client_) left_open = pavo_client_;
}

void AudioVisualDaemon::RegisterServiceObjects(AsyncEventSequencer* sequencer) {
  ambient_light_timer_ = std::make_unique<RepeatingTimer>(loop());
  metrics_library_.Init();

  const std::string kNetworkCreationAudioFilename =
      SysrootPath("/usr/share/sounds/ap/network_creation.raw");
  PCHECK(ReadFileToString(kNetworkCreationAudioFilename, &system_setup_audio_))
      << "Failed to read file: " << kNetworkCreationAudioFilename;

  status_object_ = std::make_unique<ExportedObject>(
      object_manager(), bus(), org::tessaly::ap::AudioVisual::kStatusPath);
  status_ = std::make_unique<org::tessaly::ap::AudioVisual::StatusAdaptor>(
      status_object_.get());

  light_init(IsDeveloperMode());
  // The record's default intensity, passed raw: the first configuration
  // replaces it with the scaled value.
  SetMasterBrightness(DeviceConfiguration().light_intensity(), "default");

  lighting_client_ = std::make_unique<LightingClient>();
  lighting_manager_ = std::make_unique<LightingManager>(
      loop(), lighting_client_.get(), status_.get());
  lighting_manager_->RegisterAsync(
      object_manager(),
      sequencer->GetHandler("Manager.RegisterAsync() failed.", true));

  configuration_monitor_ = std::make_unique<ConfigurationMonitor>(bus());
  configuration_monitor_->SetDeviceConfigurationChangedCallback(
      [this](const DeviceConfiguration& config) {
        OnDeviceConfigurationChanged(config);
      });

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

  // Without a proximity sensor there is no wave: nothing to calibrate.
  if (const char* path = light_get_proximity_device_path()) {
    proximity_device_path_ = path;
    StartGestureMonitor();
  }

  input_manager_ = std::make_unique<InputManager>(loop());
  input_manager_->SetAudioConnectedCallback(
      [this] { UpdateAudioServerStatus(); });
  input_manager_->SetTouchDeviceStoppedCallback(
      [this] { UpdateInputDeviceStatus(); });
  UpdateInputDeviceStatus();

  // The status is for people and tools; the daemon serves without it.
  status_object_->RegisterAsync([](bool success) {
    if (!success) LOG(WARNING) << "Failed to export the status object";
  });

  const std::string& touch = input_manager_->device_path();
  LOG(INFO) << "avd " << AVD_VERSION << " started: ring through "
            << LightLibraryFile() << ", touch device "
            << (touch.empty() ? "none" : LogText(touch))
            << ", proximity sensor "
            << (proximity_device_path_.empty() ? "none"
                                               : LogText(proximity_device_path_));
}

void AudioVisualDaemon::StartGestureMonitor() {
  const std::string vpd_cache = SysrootPath(kVpdCachePath);
  const std::string missing =
      DescribeMissingForCalibration(proximity_device_path_, vpd_cache);
  if (missing != calibration_waits_for_) {
    if (missing.empty()) {
      LOG(INFO) << "Found the proximity device and the VPD cache";
    } else {
      LOG(INFO) << "Proximity calibration waits for " << LogText(missing);
    }
    calibration_waits_for_ = missing;
    UpdateInputDeviceStatus();
  }
  if (!missing.empty()) {
    LOG(INFO) << "Device or VPD cache information missing, will retry";
    loop()->PostDelayedTask([this] { StartGestureMonitor(); },
                            kGestureMonitorRetryUs);
    return;
  }
  if (!CopyProximityCalibration(vpd_cache, SysrootPath(kProximitySysfsDir))) {
    LOG(WARNING) << "Failed to parse VPD cache";
    LOG(WARNING) << "Failed to load the VPD cache " << vpd_cache
                 << " (unreadable, or a line without '='); no wave until "
                    "the daemon restarts";
    vpd_cache_unloadable_ = true;
    UpdateInputDeviceStatus();
    return;
  }
  gesture_monitor_ = std::make_unique<GestureMonitor>(
      std::make_unique<IioEventStream>(proximity_device_path_, loop()));
  gesture_monitor_->set_wave_callback(
      [this](const IioEvent&) { OnWaveDetected(); });
  gesture_monitor_->stream().set_stopped_callback(
      [this](const std::string&) { UpdateInputDeviceStatus(); });
  UpdateInputDeviceStatus();
}

void AudioVisualDaemon::OnDeviceConfigurationChanged(
    const DeviceConfiguration& config) {
  bool completed = false;
  org::tessaly::ap::Controller::ConfigurationProxyInterface* proxy =
      configuration_monitor_->GetConfigurationProxy();
  if (!proxy || !proxy->GetSetupCompleted(&completed, nullptr,
                                          ObjectProxy::kTimeoutUseDefault)) {
    LOG(WARNING) << "Could not read if setup was completed";
    return;
  }
  if (!device_configuration_) {
    lighting_manager_->SetSetupMode(!completed);
  } else if (completed != setup_completed_) {
    if (completed) {
      lighting_manager_->SetupCompleted();
      PlayNetworkCreationSound();
    } else {
      lighting_manager_->SetSetupMode(true);
    }
  }
  setup_completed_ = completed;

  const bool lighting_unchanged =
      device_configuration_ &&
      device_configuration_->light_intensity() == config.light_intensity() &&
      device_configuration_->enable_automatic_intensity() ==
          config.enable_automatic_intensity();
  device_configuration_ = std::make_unique<DeviceConfiguration>(config);
  if (lighting_unchanged) return;
  LOG(INFO) << "Applying lighting configuration: intensity "
            << config.light_intensity() << ", automatic intensity "
            << (config.enable_automatic_intensity() ? "enabled" : "disabled");
  ConfigureAmbientLightSampling();
  ApplyBrightness();
}

void AudioVisualDaemon::ConfigureAmbientLightSampling() {
  if (device_configuration_->enable_automatic_intensity()) {
    ambient_light_timer_->Start(kAmbientLightSamplingUs,
                                [this] { ApplyBrightness(); });
  } else {
    ambient_light_timer_->Stop();
  }
}

void AudioVisualDaemon::ApplyBrightness() {
  if (!device_configuration_->enable_automatic_intensity()) {
    SetMasterBrightness(
        ScaleIntensity(device_configuration_->light_intensity()),
        "configured");
    return;
  }
  uint8_t level = 0;
  // No reading, no change: the next sample tries again.
  if (!light_get_ambient_brightness(&level)) {
    if (!ambient_light_failed_) {
      LOG(WARNING) << "Failed to read the ambient light level; the "
                      "brightness stays until a reading succeeds";
    }
    ambient_light_failed_ = true;
    return;
  }
  if (ambient_light_failed_) {
    LOG(INFO) << "Read the ambient light level again: "
              << static_cast<int>(level);
  }
  ambient_light_failed_ = false;
  SetMasterBrightness(level == 0 ? 1 : level, "ambient");
}

void AudioVisualDaemon::SetMasterBrightness(uint8_t level,
                                            const char* source) {
  light_set_master_brightness(level);
  status_->brightness().SetValue(level);
  status_->brightness_source().SetValue(source);
}

void AudioVisualDaemon::UpdateAudioServerStatus() {
  status_->audio_server_in_use().SetValue(
      pavo_client_ != nullptr ||
      (input_manager_ && input_manager_->audio_server_connected()));
}

void AudioVisualDaemon::UpdateInputDeviceStatus() {
  std::map<std::string, std::string> not_read;
  const bool touch = input_manager_ && input_manager_->touch_device_in_use();
  if (input_manager_ && !input_manager_->touch_device_problem().empty()) {
    not_read["touch"] = input_manager_->touch_device_problem();
  }
  const bool proximity =
      gesture_monitor_ && gesture_monitor_->stream().reading();
  if (gesture_monitor_) {
    if (!proximity) not_read["proximity"] = gesture_monitor_->stream().stop_reason();
  } else if (vpd_cache_unloadable_) {
    not_read["proximity"] = "the VPD cache cannot be loaded";
  } else if (!calibration_waits_for_.empty()) {
    not_read["proximity"] = "waiting for " + LogText(calibration_waits_for_);
  }
  status_->touch_device_in_use().SetValue(touch);
  status_->proximity_sensor_in_use().SetValue(proximity);
  status_->devices_not_read().SetValue(not_read);
}

void AudioVisualDaemon::PlayNetworkCreationSound() {
  if (!pavo_client_) {
    const int result = pavo_helper_create_connect(&pavo_client_);
    CHECK(result == 0) << "Failed to connect to the audio server: error "
                       << result << " (" << strerror(-result) << ")";
    UpdateAudioServerStatus();
  }
  // The outcome is not looked at: a missed chime is not worth a retry.
  pavo_helper_play_buffer(
      pavo_client_, system_setup_audio_.data(), system_setup_audio_.size() / 4,
      kSampleFormatS16Le, kSampleRate, kNetworkCreationChannels,
      pavo_client_get_first_dev_type_idx(pavo_client_, kInternalSpeaker,
                                         kOutput));
}

void AudioVisualDaemon::OnWaveDetected() {
  LOG(INFO) << "Wave detected";
  const DeviceConfiguration* current =
      configuration_monitor_->device_configuration();
  if (!current) {
    LOG(WARNING) << "Unable to get current device configuration";
    return;
  }
  if (!current->has_default_prioritized_device() ||
      current->default_prioritized_device().expiration_time() == 0 ||
      current->enable_bridge_mode()) {
    metrics_library_.SendEnumToUMA(kPrioritizeEventMetric,
                                   kNothingToPrioritize, kPrioritizeEventMax);
    return;
  }
  LOG(INFO) << "Prioritizing default device";
  metrics_library_.SendEnumToUMA(kPrioritizeEventMetric, kPrioritized,
                                 kPrioritizeEventMax);
  const DeviceConfiguration config =
      PrioritizeDefaultDevice(*current, loop()->WallNow());
  // The new configuration comes back through OnDeviceConfigurationChanged.
  if (configuration_monitor_->WriteDeviceConfiguration(config)) {
    lighting_manager_->ReapplyStateWithTransition();
  } else {
    LOG(WARNING) << "Unable to set device configuration";
  }
}

void AudioVisualDaemon::OnGroupMonitorPropertyChanged(
    org::tessaly::ap::GroupMonitorProxyInterface* proxy, const std::string&) {
  // Whatever changed, the failure is judged from all of it again.
  group_failure_ = proxy->is_root() ? false : !proxy->connected_to_root();
  LOG(INFO) << "Group failure is " << group_failure_;
  const char* description = proxy->is_root() ? "this access point is the root"
                            : proxy->connected_to_root()
                                ? "connected to the root"
                                : "not connected to the root";
  if (group_description_ != description) {
    group_description_ = description;
    LOG(INFO) << "Group: " << description;
  }
  status_->group_failure().SetValue(group_failure_);
  lighting_manager_->SetConnected(wan_online_ ? !group_failure_ : false);
}

void AudioVisualDaemon::OnGroupMonitorOwnerChanged(const std::string&,
                                                   const std::string& new_owner) {
  if (!new_owner.empty()) return;
  LOG(INFO) << "Group failure is cleared";
  group_failure_ = false;
  group_description_ = "the group monitor left the bus";
  LOG(INFO) << "Group: " << group_description_;
  status_->group_failure().SetValue(false);
  lighting_manager_->SetConnected(wan_online_);
}

void AudioVisualDaemon::OnWanStateChanged(const std::string& state) {
  const bool online = state == "online";
  if (online == wan_online_) return;
  wan_online_ = online;
  LOG(INFO) << "WAN is " << (online ? "online" : "offline");
  status_->wan_online().SetValue(online);
  lighting_manager_->SetConnected(online ? !group_failure_ : false);
  if (online) {
    // A client of its own for this one event; the call blocks until Upstart
    // answers or the default time-out passes.
    UpstartClient().EmitEvent("ap-wan-online", {}, false);
  }
}

}  // namespace morvane::ap
