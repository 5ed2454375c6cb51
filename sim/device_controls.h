#ifndef SIM_DEVICE_CONTROLS_H_
#define SIM_DEVICE_CONTROLS_H_

#include <functional>
#include <string>

#include "platform/error.h"
#include "sim/device_inputs.h"
#include "sim/sim_directory.h"
#include "sim/sysfs_board.h"

namespace morvane::ap {

struct SimState;

// The sensor's calibration attributes, as SimState::calibration holds them.
inline constexpr const char* kSensorAttributes[] = {
    "in_proximity_calibbias", "events/in_proximity_thresh_falling_value",
    "events/in_proximity_thresh_rising_value"};

// What a person does to the simulated device and its surroundings: the
// touch button, a hand over the proximity sensor, the ambient light, the
// VPD cache, the audio server, a device unplugged. Each reports "inject
// ..." (or "error ...") and updates the state the views show.
class DeviceControls {
 public:
  using Reporter = std::function<void(const std::string& line)>;

  // |directory|, |board| (null without the sysfs light library) and
  // |state| must outlive this object; |changed| runs after each change.
  DeviceControls(const SimDirectory& directory, SysfsBoard* board,
                 SimState* state, Reporter report,
                 std::function<void()> changed);
  DeviceControls(const DeviceControls&) = delete;
  DeviceControls& operator=(const DeviceControls&) = delete;

  // Opens the touch input and the sensor's event FIFOs.
  bool Open(ErrorPtr* error);
  // Discards what no daemon read, before a daemon starts.
  void Drain();

  void InjectWave();
  void InjectPress();
  // 0..255, or -1: the sensor reading fails.
  void SetAmbient(int level);
  void SetVpdCache(bool present);
  void SetAudioDown(bool down);
  // The touch device (or else the proximity sensor) goes away for good.
  void Unplug(bool touch);

 private:
  // Writes a file of the simulated world; a failure is reported, not fatal.
  void Write(const std::string& path, const std::string& contents);

  const SimDirectory& directory_;
  SysfsBoard* const sysfs_board_;
  SimState* const state_;
  const Reporter report_;
  const std::function<void()> changed_;
  FifoWriter touch_fifo_;
  FifoWriter iio_fifo_;
};

}  // namespace morvane::ap

#endif  // SIM_DEVICE_CONTROLS_H_
