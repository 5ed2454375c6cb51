// liblightcontrol.so.1 over the kernel's LED class and IIO: the six
// functions of the light-control library for a real board. Fixed paths are
// taken under LIGHTCONTROL_SYSFS_ROOT when it is set; the configuration file
// is LIGHTCONTROL_SYSFS_CONFIG, else /etc/lightcontrol-sysfs.conf under that
// root. Called from one thread only, as the daemon does.

#include <cstdlib>
#include <memory>

#include "lightcontrol_sysfs/sysfs_light_control.h"
#include "stubs/lightcontrol/lightcontrol.h"

namespace {

using morvane::ap::SysfsLightControl;

std::unique_ptr<SysfsLightControl>& Instance() {
  static std::unique_ptr<SysfsLightControl> instance;
  return instance;
}

void Init() {
  const char* root = getenv("LIGHTCONTROL_SYSFS_ROOT");
  const char* config = getenv("LIGHTCONTROL_SYSFS_CONFIG");
  const std::string root_dir = root ? root : "";
  Instance() = std::make_unique<SysfsLightControl>(
      root_dir, config && *config ? std::string(config)
                                  : root_dir + "/etc/lightcontrol-sysfs.conf");
}

// The daemon calls light_init first; a caller that does not still gets a
// working library.
SysfsLightControl& Lights() {
  if (!Instance()) Init();
  return *Instance();
}

}  // namespace

#define EXPORT extern "C" __attribute__((visibility("default")))

// Developer mode changes nothing on the LEDs.
EXPORT void light_init(bool /*developer_mode*/) { Init(); }

EXPORT int light_set_state(int state) {
  return Lights().SetState(state, std::nullopt);
}

EXPORT int light_set_state_with_transition(int state, int transition) {
  return Lights().SetState(state, transition);
}

EXPORT int light_set_master_brightness(uint8_t level) {
  return Lights().SetMasterBrightness(level);
}

EXPORT bool light_get_ambient_brightness(uint8_t* level) {
  if (level == nullptr) return false;
  const std::optional<uint8_t> reading = Lights().ReadAmbient();
  if (reading) *level = *reading;
  return reading.has_value();
}

EXPORT const char* light_get_proximity_device_path(void) {
  return Lights().ProximityDevicePath();
}
