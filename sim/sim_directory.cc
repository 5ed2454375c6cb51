#include "sim/sim_directory.h"

#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>

#include "platform/file_util.h"
#include "stubs/clips/clips.h"
#include "peers/peer_bus.h"
#include "peers/system_error.h"

namespace morvane::ap {
namespace {

bool MakeFifo(const std::string& path, ErrorPtr* error) {
  return mkfifo(path.c_str(), 0600) == 0 ||
         SystemCallFailed(error, "create FIFO " + path);
}

// Whether |pid| no longer runs; a zombie (killed, not yet reaped) does not.
bool Gone(pid_t pid) {
  if (kill(pid, 0) != 0) return errno == ESRCH;
  std::string text;
  ReadFileToString("/proc/" + std::to_string(pid) + "/stat", &text);
  const size_t paren = text.rfind(')');
  return paren != std::string::npos && text.compare(paren, 3, ") Z") == 0;
}

// Removes the directories under |parent| that simulators left when they
// were killed: those whose owner's pid no longer runs. A directory without
// an owner was kept, or is not ours.
void RemoveOrphans(const std::string& parent) {
  std::error_code ec;
  for (const auto& entry : std::filesystem::directory_iterator(parent, ec)) {
    std::string owner;
    if (!entry.path().filename().string().starts_with("ap-sim.") ||
        !ReadFileToString(entry.path() / "owner", &owner)) {
      continue;
    }
    const pid_t pid = static_cast<pid_t>(atoi(owner.c_str()));
    if (pid > 0 && Gone(pid)) std::filesystem::remove_all(entry.path(), ec);
  }
}

}  // namespace

bool WriteWholeFile(const std::string& path, const std::string& contents,
                    ErrorPtr* error) {
  return WriteFile(path, contents.data(), static_cast<int>(contents.size())) ==
             static_cast<int>(contents.size()) ||
         SystemCallFailed(error, "write " + path);
}

std::unique_ptr<SimDirectory> SimDirectory::Create(
    const SimDirectoryOptions& options, ErrorPtr* error) {
  const char* tmp = getenv("TMPDIR");
  const std::string parent = tmp && *tmp ? tmp : "/tmp";
  RemoveOrphans(parent);
  std::string pattern = parent + "/ap-sim.XXXXXX";
  if (!mkdtemp(pattern.data())) {
    SystemCallFailed(error, "create a temporary directory");
    return nullptr;
  }
  std::unique_ptr<SimDirectory> dir(new SimDirectory(pattern));
  if (!dir->Populate(options, error)) return nullptr;  // Removes the tree.
  return dir;
}

std::vector<std::string> SimDirectory::DaemonEnvironment(
    const std::string& bus_address, const std::string& preload) const {
  const char* path = getenv("PATH");
  const char* asan = getenv("ASAN_OPTIONS");
  std::vector<std::string> env = {
      "DBUS_SYSTEM_BUS_ADDRESS=" + bus_address,
      "AVD_SYSROOT=" + sysroot(),
      "LIGHTCONTROL_LOG=" + lightcontrol_log(),
      "LIGHTCONTROL_AMBIENT=" + ambient_file(),
      "LIGHTCONTROL_PROXIMITY_DEVICE=" + proximity_device(),
      "PAVO_LOG=" + pavo_log(),
      "PAVO_DOWN=" + pavo_down_file(),
      "METRICS_LOG=" + metrics_log(),
      "PATH=" + bin_dir() + ":" + (path ? path : "/usr/bin:/bin"),
      "AP_SIM_IIO_DEVICE=" + proximity_device(),
      "AP_SIM_IIO_EVENTS=" + iio_event_fifo(),
      // A sanitized daemon refuses a preload library ahead of its runtime.
      std::string("ASAN_OPTIONS=") +
          (asan && *asan ? std::string(asan) + ":" : "") +
          "verify_asan_link_order=0",
  };
  if (!preload.empty()) env.push_back("LD_PRELOAD=" + preload);
  return env;
}

void SimDirectory::Keep() {
  keep_ = true;
  unlink(owner_file().c_str());
}

SimDirectory::~SimDirectory() {
  if (keep_) return;
  std::error_code ec;
  std::filesystem::remove_all(root_, ec);
}

bool SimDirectory::Populate(const SimDirectoryOptions& options,
                            ErrorPtr* error) {
  const std::string sounds = sysroot() + "/usr/share/sounds/ap";
  for (const std::string& dir :
       {bin_dir(), logs_dir(), sounds, sysroot() + "/usr/share/ap",
        sysroot() + "/var/cache/vpd", sysroot() + "/usr/local/etc/ap",
        iio_sysfs_dir() + "/events", root_ + "/dev/input"}) {
    std::error_code ec;
    if (!std::filesystem::create_directories(dir, ec) && ec) {
      errno = ec.value();
      return SystemCallFailed(error, "create " + dir);
    }
  }

  const std::string chime = MakeChimeClip();
  const std::string click = MakeClickClip();
  network_creation_bytes_ = chime.size();
  touch_feedback_bytes_ = click.size();

  const struct {
    std::string path;
    std::string contents;
  } kFiles[] = {
      {sounds + "/network_creation.raw", chime},
      {sounds + "/touch_feedback.raw", click},
      {sysroot() + "/usr/share/ap/platform-settings.sh",
       "# Simulated hardware model.\n"
       "PLATFORM_TOUCH_INPUT_EVENT_PATH='" + touch_fifo() + "'\n"
       "PLATFORM_SETUP_SSID_MODEL='sim'\n"
       "PLATFORM_HAS_AUXILIARY_RADIO=1\n"
       "PLATFORM_HAS_NSS_SUPPORT=0\n"},
      {vpd_cache(),
       "\"ps_calibration\"=\"123\"\n"
       "\"plthres\"=\"100\"\n"
       "\"phthres\"=\"200\"\n"},
      // Empty until the daemon calibrates the sensor.
      {iio_sysfs_dir() + "/in_proximity_calibbias", ""},
      {iio_sysfs_dir() + "/events/in_proximity_thresh_falling_value", ""},
      {iio_sysfs_dir() + "/events/in_proximity_thresh_rising_value", ""},
      {proximity_device(), ""},
      // Everyone may do everything: the bus is private to one run.
      {bus_config(), PrivateBusConfig(bus_socket())},
      {bin_dir() + "/is_developer_end_user",
       std::string("#!/bin/sh\nexit ") + (options.developer ? "0" : "1") +
           "\n"},
      {lightcontrol_log(), ""},
      {pavo_log(), ""},
      {metrics_log(), ""},
      {avd_log(), ""},
      {owner_file(), std::to_string(getpid()) + "\n"},
  };
  for (const auto& file : kFiles) {
    if (!WriteWholeFile(file.path, file.contents, error)) return false;
  }
  if (options.simulate_verified &&
      !WriteWholeFile(sysroot() + "/usr/local/etc/ap/simulate-verified-mode",
                      "", error)) {
    return false;
  }
  if (chmod((bin_dir() + "/is_developer_end_user").c_str(), 0755) != 0) {
    return SystemCallFailed(error, "make is_developer_end_user executable");
  }
  return MakeFifo(touch_fifo(), error) && MakeFifo(iio_event_fifo(), error);
}

}  // namespace morvane::ap
