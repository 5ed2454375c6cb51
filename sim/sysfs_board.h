#ifndef SIM_SYSFS_BOARD_H_
#define SIM_SYSFS_BOARD_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/error.h"
#include "platform/task_loop.h"
#include "sim/file_watcher.h"
#include "sim/sim_directory.h"

namespace morvane::ap {

// What the simulated ring shows, derived from the LED attributes alone.
struct RingView {
  // Per LED, the colour at full level as 0xRRGGBB.
  std::vector<uint32_t> colours;
  // The level (0..255) of the brightest LED: its steady brightness or the
  // peak of its pattern.
  int level = 0;
  // "pattern" or "steady", for a view to show.
  std::string mode;
  // The script line, e.g. "ring rgb 0 255 0 brightness 76" or
  // "ring rgb 255 255 255 pattern 0 1500 76 1500"; a ring whose LEDs do not
  // all agree says so.
  std::string line;
};

// A board for the sysfs light-control library inside the simulator's
// directory: a ring of kLeds multicolour LEDs in the kernel's LED class with
// the pattern trigger, an ambient light channel and proximity threshold
// events on the simulated IIO sensor, and the library's configuration file.
// The library sees the simulator's directory as its root; its sys/ is the
// sysroot's, so the daemon and the library share one IIO device.
class SysfsBoard {
 public:
  static constexpr int kLeds = 12;
  using RingCallback = std::function<void(const RingView& view)>;

  // Builds the board's files in |dir|, which must outlive the board. The
  // library is loaded from |library_dir|. Returns null and adds to |error|
  // when a file cannot be made.
  static std::unique_ptr<SysfsBoard> Create(const SimDirectory* dir,
                                            std::string library_dir,
                                            ErrorPtr* error);
  SysfsBoard(const SysfsBoard&) = delete;
  SysfsBoard& operator=(const SysfsBoard&) = delete;
  ~SysfsBoard();

  // NAME=VALUE entries that make the daemon load the library against this
  // board.
  std::vector<std::string> Environment() const;

  // Follows the LEDs' attributes through |watcher| and calls |on_ring| on
  // |loop| once a burst of writes has settled and the view changed. |loop|
  // and |watcher| must outlive the board.
  bool Watch(TaskLoop* loop, FileWatcher* watcher, RingCallback on_ring,
             ErrorPtr* error);

  // Sets the light sensor to |level| (the configured full scale is 255
  // lux); -1 removes its channel, so that readings fail.
  bool SetAmbient(int level, ErrorPtr* error);

 private:
  SysfsBoard(const SimDirectory* dir, std::string library_dir);
  bool Populate(ErrorPtr* error);
  std::string LedDir(int index) const;
  void OnAttributeChanged();
  void Describe();

  const SimDirectory* const dir_;
  const std::string library_dir_;
  TaskLoop* loop_ = nullptr;
  RingCallback on_ring_;
  TaskId settle_task_ = 0;
  // Every LED's look, to report changes only.
  std::vector<std::string> last_looks_;
};

}  // namespace morvane::ap

#endif  // SIM_SYSFS_BOARD_H_
