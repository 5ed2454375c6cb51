#ifndef AV_AUDIO_VISUAL_DAEMON_H_
#define AV_AUDIO_VISUAL_DAEMON_H_

#include <memory>
#include <string>

#include "av/input_manager.h"
#include "av/lighting_client.h"
#include "av/lighting_manager.h"
#include "platform/service_daemon.h"
#include "stubs/metrics/metrics_library.h"

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
  // The whole network-creation clip, played when setup completes.
  std::string system_setup_audio_;
  metrics::MetricsLibrary metrics_library_;
  std::unique_ptr<LightingClient> lighting_client_;
  std::unique_ptr<LightingManager> lighting_manager_;
  std::unique_ptr<InputManager> input_manager_;
};

}  // namespace morvane::ap

#endif  // AV_AUDIO_VISUAL_DAEMON_H_
