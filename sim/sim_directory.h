#ifndef SIM_SIM_DIRECTORY_H_
#define SIM_SIM_DIRECTORY_H_

#include <memory>
#include <string>
#include <vector>

#include "platform/error.h"

namespace morvane::ap {

// Choices that shape the simulated device's files.
struct SimDirectoryOptions {
  // What "is_developer_end_user" answers: true makes it exit 0.
  bool developer = true;
  // Creates the marker that makes a developer device behave as verified.
  bool simulate_verified = false;
};

// The simulator's temporary directory: a sysroot for the daemon (clips,
// platform settings, VPD cache, IIO sysfs tree), the simulated device nodes,
// the stand-in libraries' log files and the private bus configuration.
// Everything lives under one mkdtemp() directory that the destructor removes
// unless it is kept. The directory names its owner's pid in "owner": one
// whose owner is gone (a killed simulator) is removed by the next Create().
class SimDirectory {
 public:
  // Returns null and adds to |error| when the directory or one of its files
  // cannot be made; nothing is left behind then.
  static std::unique_ptr<SimDirectory> Create(const SimDirectoryOptions& options,
                                              ErrorPtr* error);
  SimDirectory(const SimDirectory&) = delete;
  SimDirectory& operator=(const SimDirectory&) = delete;
  // Removes the whole directory tree unless Keep() was called.
  ~SimDirectory();

  // Leaves the directory in place for good, to be looked at.
  void Keep();

  const std::string& root() const { return root_; }
  std::string sysroot() const { return root_ + "/sysroot"; }
  std::string bin_dir() const { return root_ + "/bin"; }
  std::string logs_dir() const { return root_ + "/logs"; }
  std::string bus_config() const { return root_ + "/bus.conf"; }
  std::string bus_socket() const { return root_ + "/system_bus_socket"; }

  // The touch input FIFO named in the platform settings.
  std::string touch_fifo() const { return root_ + "/dev/input/event0"; }
  // Stand-in for the proximity sensor's character device (a plain file).
  std::string proximity_device() const { return root_ + "/dev/iio:device0"; }
  // The FIFO that the preload library hands to the daemon as the IIO event
  // descriptor.
  std::string iio_event_fifo() const { return root_ + "/dev/iio_events"; }
  // The fake sysfs directory of the sensor, inside the sysroot.
  std::string iio_sysfs_dir() const {
    return sysroot() + "/sys/bus/iio/devices/iio:device0";
  }

  std::string ambient_file() const { return root_ + "/ambient"; }
  std::string vpd_cache() const {
    return sysroot() + "/var/cache/vpd/full-v2.txt";
  }
  std::string pavo_down_file() const { return root_ + "/pavo_down"; }
  std::string pavo_capture_file() const { return root_ + "/pavo_capture.raw"; }
  std::string lightcontrol_log() const { return logs_dir() + "/lightcontrol.log"; }
  std::string pavo_log() const { return logs_dir() + "/pavo.log"; }
  std::string metrics_log() const { return logs_dir() + "/metrics.log"; }
  std::string avd_log() const { return logs_dir() + "/avd.log"; }
  std::string events_log() const { return root_ + "/events.log"; }
  std::string owner_file() const { return root_ + "/owner"; }

  // The environment entries (NAME=VALUE) that put the daemon in this
  // directory's world: the bus at |bus_address|, the sysroot, the stand-in
  // libraries' files, the simulated sensor and, when |preload| names one,
  // the IIO preload library.
  std::vector<std::string> DaemonEnvironment(const std::string& bus_address,
                                             const std::string& preload) const;

  // Sizes in bytes of the two generated clips, to tell played sounds apart.
  size_t network_creation_bytes() const { return network_creation_bytes_; }
  size_t touch_feedback_bytes() const { return touch_feedback_bytes_; }

 private:
  explicit SimDirectory(std::string root) : root_(std::move(root)) {}
  bool Populate(const SimDirectoryOptions& options, ErrorPtr* error);

  const std::string root_;
  bool keep_ = false;
  size_t network_creation_bytes_ = 0;
  size_t touch_feedback_bytes_ = 0;
};

// Writes |contents| to |path| (created or truncated). Returns false and adds
// to |error| on failure.
bool WriteWholeFile(const std::string& path, const std::string& contents,
                    ErrorPtr* error);

}  // namespace morvane::ap

#endif  // SIM_SIM_DIRECTORY_H_
