#ifndef AV_AUDIO_VISUAL_DAEMON_H_
#define AV_AUDIO_VISUAL_DAEMON_H_

#include <memory>
#include <string>

#include "av/gesture_monitor.h"
#include "av/input_manager.h"
#include "av/lighting_client.h"
#include "av/lighting_manager.h"
#include "common/configuration_monitor.h"
#include "common/storage.pb.h"
#include "common/vantle_client.h"
#include "dbus/group_monitor_proxy.h"
#include "dbus/status_adaptor.h"
#include "platform/exported_object.h"
#include "platform/service_daemon.h"
#include "platform/timer.h"
#include "stubs/metrics/metrics_library.h"
#include "stubs/pavo/pavo.h"

namespace morvane::ap {

// The audio-visual daemon: the D-Bus service "org.tessaly.ap.AudioVisual".
// Creates every component in a fixed order once the bus is up and owns them
// until Run() returns; they are destroyed in reverse order.
class AudioVisualDaemon : public ServiceDaemon {
 public:
  static constexpr char kServiceName[] = "org.tessaly.ap.AudioVisual";
  static constexpr char kRootPath[] = "/org/tessaly/ap/AudioVisual";

  AudioVisualDaemon();
  AudioVisualDaemon(const AudioVisualDaemon&) = delete;
  AudioVisualDaemon& operator=(const AudioVisualDaemon&) = delete;
  ~AudioVisualDaemon() override;

 protected:
  // Start-up. Ends the process when the network-creation clip is missing.
  void RegisterServiceObjects(AsyncEventSequencer* sequencer) override;

 private:
  friend class AudioVisualDaemonTest;

  // The ring's connectivity input is "the WAN is online and this access
  // point has no group failure". A group failure is a non-root access point
  // that does not reach the root; it clears when the group monitor leaves
  // the bus. Each offline-to-online change of the WAN emits the init
  // system's event "ap-wan-online".
  void OnGroupMonitorPropertyChanged(
      org::tessaly::ap::GroupMonitorProxyInterface* proxy,
      const std::string& name);
  void OnGroupMonitorOwnerChanged(const std::string& old_owner,
                                  const std::string& new_owner);
  void OnWanStateChanged(const std::string& state);

  // Follows the setup state into the ring (and plays the network-creation
  // clip when setup completes while the daemon runs), then applies the
  // brightness settings when they changed. A configuration whose setup
  // state cannot be read is ignored.
  void OnDeviceConfigurationChanged(const DeviceConfiguration& config);
  // Samples the ambient light every 2 s while automatic intensity is on.
  void ConfigureAmbientLightSampling();
  // The ambient level (never 0: darkness does not turn the ring off), or
  // the configured intensity scaled to 0..255. A failed reading changes
  // nothing; the first one is said, and the next good one.
  void ApplyBrightness();
  // Sets the ring's master brightness and shows it, with |source|, in the
  // status.
  void SetMasterBrightness(uint8_t level, const char* source);
  // Whether a connection to the audio server is held, into the status.
  void UpdateAudioServerStatus();
  // Whether the touch device and the proximity sensor are read, and why
  // not, into the status.
  void UpdateInputDeviceStatus();
  void PlayNetworkCreationSound();
  // Prioritises the configured default device for its duration by writing
  // the configuration back to the controller.
  void OnWaveDetected();

  // Once the proximity device and the VPD cache exist (checked every 3 s
  // until then), copies the sensor's calibration from the cache into its
  // sysfs attributes and starts the gesture monitor. Which of the two is
  // missing is said when that changes, and their arrival once.
  void StartGestureMonitor();

  std::unique_ptr<ConfigurationMonitor> configuration_monitor_;
  std::unique_ptr<VantleClient> vantle_client_;
  std::unique_ptr<org::tessaly::ap::GroupMonitorProxy> group_monitor_proxy_;
  bool group_failure_ = false;
  // Made at start-up: a timer needs the loop.
  std::unique_ptr<RepeatingTimer> ambient_light_timer_;
  // The status object, fed by the daemon and the lighting manager; made
  // before them and destroyed after them.
  std::unique_ptr<ExportedObject> status_object_;
  std::unique_ptr<org::tessaly::ap::AudioVisual::StatusAdaptor> status_;
  // How the group monitor last described this access point, for logging
  // its changes.
  std::string group_description_;
  // Connected on first use and kept; left open at exit on purpose.
  pavo_client* pavo_client_ = nullptr;
  // The whole network-creation clip, played when setup completes.
  std::string system_setup_audio_;
  bool wan_online_ = false;
  // The last configuration applied; null until the first.
  std::unique_ptr<DeviceConfiguration> device_configuration_;
  bool setup_completed_ = false;
  // The proximity sensor's IIO device as the light library names it.
  std::string proximity_device_path_;
  // What the last calibration attempt waited for; empty when none did.
  std::string calibration_waits_for_;
  // Whether calibration stopped at a VPD cache it could not load.
  bool vpd_cache_unloadable_ = false;
  // Whether the last ambient reading failed; said once until one succeeds.
  bool ambient_light_failed_ = false;
  std::unique_ptr<GestureMonitor> gesture_monitor_;
  metrics::MetricsLibrary metrics_library_;
  std::unique_ptr<LightingClient> lighting_client_;
  std::unique_ptr<LightingManager> lighting_manager_;
  std::unique_ptr<InputManager> input_manager_;
};

}  // namespace morvane::ap

#endif  // AV_AUDIO_VISUAL_DAEMON_H_
