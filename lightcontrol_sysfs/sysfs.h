#ifndef LIGHTCONTROL_SYSFS_SYSFS_H_
#define LIGHTCONTROL_SYSFS_SYSFS_H_

#include <optional>
#include <set>
#include <string>
#include <vector>

namespace morvane::ap {

// The kernel's attribute files as the library sees them: every fixed path
// ("/sys/class/leds", "/dev/iio:device0", ...) is taken under a root
// directory, empty on a board and a temporary tree in the simulator. Also
// the library's one way to report a problem: to stderr and to syslog, both
// prefixed "lightcontrol-sysfs: ", each distinct problem once until it goes
// away, so a failing attribute written at every state change or a sensor
// read every 2 s does not flood the log.
class Sysfs {
 public:
  // |root| is prepended to every fixed path; a trailing '/' is dropped.
  explicit Sysfs(std::string root);

  // |absolute| under the root.
  std::string Path(const std::string& absolute) const;

  // Reads a small attribute file whole. On failure returns nullopt and sets
  // |*error| (when given) to the errno.
  std::optional<std::string> Read(const std::string& path,
                                  int* error = nullptr) const;

  // Writes |value| and a newline with one write(), as `echo value > path`
  // does; the kernel takes an attribute in one write. Never creates the
  // file. Reports a failure (once) and returns false.
  bool Write(const std::string& path, const std::string& value);

  // Names in directory |path|, sorted, without "." and "..". Empty when the
  // directory cannot be read. Symbolic links are listed like the rest: class
  // directories are links into /sys/devices.
  std::vector<std::string> List(const std::string& path) const;

  // Reports |message| unless the same |key| was reported and not cleared.
  void ReportOnce(const std::string& key, const std::string& message);
  // The problem of |key| went away; it is reported again if it comes back.
  void Clear(const std::string& key);

  const std::string& root() const { return root_; }

 private:
  const std::string root_;
  std::set<std::string> reported_;
};

// Reports |message| at once: to stderr, and to syslog at |priority|.
void ReportLine(const std::string& message, int priority = 4 /* LOG_WARNING */);

// Parses a whole decimal integer with optional surrounding white space.
std::optional<long> ParseInteger(const std::string& text);

}  // namespace morvane::ap

#endif  // LIGHTCONTROL_SYSFS_SYSFS_H_
