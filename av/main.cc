#include <sysexits.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "av/audio_visual_daemon.h"
#include "avd_version.h"
#include "platform/command_line.h"
#include "platform/logging.h"

namespace {

constexpr char kUsage[] = "avd [-h|--help|help] [--version]";
constexpr char kEnvironment[] =
    "Environment:\n"
    "  DBUS_SYSTEM_BUS_ADDRESS  the system bus to join (default: the\n"
    "                           system's own)\n"
    "  AVD_SYSROOT              directory under which the fixed paths\n"
    "                           (/usr/share/sounds/ap/..., /usr/share/ap/\n"
    "                           platform-settings.sh, /var/cache/vpd/...,\n"
    "                           /sys/bus/iio/devices/...) are looked up\n"
    "  JOURNAL_STREAM           set by systemd: when it names standard\n"
    "                           error, lines go to the journal only once\n"
    "  PATH                     where is_developer_end_user is found\n"
    "\n"
    "The stand-in light, audio and metrics libraries read LIGHTCONTROL_LOG,\n"
    "LIGHTCONTROL_AMBIENT, LIGHTCONTROL_PROXIMITY_DEVICE, PAVO_LOG,\n"
    "PAVO_CAPTURE, PAVO_DOWN and METRICS_LOG; liblightcontrol-sysfs reads\n"
    "LIGHTCONTROL_SYSFS_ROOT and LIGHTCONTROL_SYSFS_CONFIG. See avd(8).\n";
// Where sd-bus looks for the system bus when no address is given.
constexpr char kDefaultSystemBus[] = "/run/dbus/system_bus_socket";

}  // namespace

int main(int argc, char** argv) {
  morvane::ap::ParseCommandLine(&argc, &argv,
                                {.summary = "AV Daemon",
                                 .usage = kUsage,
                                 .details = kEnvironment,
                                 .version = AVD_VERSION,
                                 .flags_file = __FILE__});
  morvane::ap::InitLogging(argv[0], morvane::ap::kLogToSyslog |
                                        morvane::ap::kLogToStderr |
                                        morvane::ap::kLogHeader);
  morvane::ap::AudioVisualDaemon daemon;
  const int status = daemon.Run();
  // On a workstation there is usually no system bus: say where one is.
  if (status == EX_UNAVAILABLE && !getenv("DBUS_SYSTEM_BUS_ADDRESS") &&
      access(kDefaultSystemBus, F_OK) != 0) {
    fprintf(stderr,
            "avd: There is no system bus at %s. Run the daemon inside the "
            "simulator (scripts/sim), or set DBUS_SYSTEM_BUS_ADDRESS to the "
            "address of a running bus.\n",
            kDefaultSystemBus);
  }
  return status;
}
