#include "sim/sysfs_board.h"

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <sstream>

#include "peers/system_error.h"

namespace morvane::ap {
namespace {

// The library writes a state as a few attributes in a row; the ring is
// described once they have all landed.
constexpr int64_t kSettleUs = 20'000;
constexpr const char* kWatched[] = {"multi_intensity", "trigger", "brightness",
                                    "pattern", "repeat"};

std::string LedName(int index) {
  return "ring:rgb:indicator-" + std::to_string(index + 1);
}

std::string Attribute(const std::string& dir, const char* name) {
  const std::string text = ReadWholeFile(dir + "/" + name);
  return text.substr(0, text.find_last_not_of("\n ") + 1);
}

std::vector<int> Numbers(const std::string& text) {
  std::istringstream in(text);
  std::vector<int> numbers;
  for (int n; in >> n;) numbers.push_back(n);
  return numbers;
}

bool MakeLink(const std::string& target, const std::string& path,
              ErrorPtr* error) {
  return symlink(target.c_str(), path.c_str()) == 0 ||
         SystemCallFailed(error, "link " + path);
}

}  // namespace

std::unique_ptr<SysfsBoard> SysfsBoard::Create(const SimDirectory* dir,
                                               std::string library_dir,
                                               ErrorPtr* error) {
  std::unique_ptr<SysfsBoard> board(
      new SysfsBoard(dir, std::move(library_dir)));
  if (!board->Populate(error)) return nullptr;
  return board;
}

SysfsBoard::SysfsBoard(const SimDirectory* dir, std::string library_dir)
    : dir_(dir), library_dir_(std::move(library_dir)) {}

SysfsBoard::~SysfsBoard() {
  if (settle_task_) loop_->CancelTask(settle_task_);
}

std::string SysfsBoard::LedDir(int index) const {
  return dir_->sysroot() + "/sys/devices/platform/ring/leds/" + LedName(index);
}

bool SysfsBoard::Populate(ErrorPtr* error) {
  const std::string classes = dir_->sysroot() + "/sys/class/leds";
  std::error_code ec;
  std::string ring;
  for (int i = 0; i < kLeds; ++i) {
    std::filesystem::create_directories(LedDir(i), ec);
    const struct {
      const char* name;
      const char* value;
    } kAttributes[] = {
        {"brightness", "0\n"},       {"max_brightness", "255\n"},
        {"multi_index", "red green blue\n"}, {"multi_intensity", "0 0 0\n"},
        {"trigger", "[none] timer heartbeat pattern\n"},
        {"pattern", "\n"},           {"repeat", "-1\n"},
    };
    for (const auto& attribute : kAttributes) {
      if (!WriteWholeFile(LedDir(i) + "/" + attribute.name, attribute.value,
                          error)) {
        return false;
      }
    }
    std::filesystem::create_directories(classes, ec);
    if (!MakeLink("../../devices/platform/ring/leds/" + LedName(i),
                  classes + "/" + LedName(i), error)) {
      return false;
    }
    ring += " " + LedName(i);
  }
  const std::string iio = dir_->iio_sysfs_dir();
  return MakeLink("sysroot/sys", dir_->root() + "/sys", error) &&
         WriteWholeFile(iio + "/in_proximity_raw", "0\n", error) &&
         WriteWholeFile(iio + "/events/in_proximity_thresh_either_en", "1\n",
                        error) &&
         SetAmbient(128, error) &&
         WriteWholeFile(dir_->root() + "/lightcontrol-sysfs.conf",
                        "# The simulated board: a ring of twelve RGB LEDs and "
                        "a light sensor\n# whose full scale is the ambient "
                        "level 255.\nring =" + ring +
                            "\nambient_full_scale_lux = 255\n",
                        error);
}

std::vector<std::string> SysfsBoard::Environment() const {
  return {"LD_LIBRARY_PATH=" + library_dir_,
          "LIGHTCONTROL_SYSFS_ROOT=" + dir_->root(),
          "LIGHTCONTROL_SYSFS_CONFIG=" + dir_->root() + "/lightcontrol-sysfs.conf"};
}

bool SysfsBoard::SetAmbient(int level, ErrorPtr* error) {
  const std::string path = dir_->iio_sysfs_dir() + "/in_illuminance_raw";
  if (level >= 0) return WriteWholeFile(path, std::to_string(level) + "\n", error);
  unlink(path.c_str());
  return true;
}

bool SysfsBoard::Watch(TaskLoop* loop, FileWatcher* watcher,
                       RingCallback on_ring, ErrorPtr* error) {
  loop_ = loop;
  on_ring_ = std::move(on_ring);
  for (int i = 0; i < kLeds; ++i) {
    for (const char* attribute : kWatched) {
      if (!watcher->WatchContent(LedDir(i) + "/" + attribute,
                                 [this](const std::string&) { OnAttributeChanged(); },
                                 error)) {
        return false;
      }
    }
  }
  return true;
}

void SysfsBoard::OnAttributeChanged() {
  if (settle_task_) loop_->CancelTask(settle_task_);
  settle_task_ = loop_->PostDelayedTask(
      [this] {
        settle_task_ = 0;
        Describe();
      },
      kSettleUs);
}

void SysfsBoard::Describe() {
  RingView view;
  std::vector<std::string> looks;
  for (int i = 0; i < kLeds; ++i) {
    const std::string dir = LedDir(i);
    std::vector<int> rgb = Numbers(Attribute(dir, "multi_intensity"));
    rgb.resize(3, 0);
    std::string look = "rgb " + std::to_string(rgb[0]) + " " +
                       std::to_string(rgb[1]) + " " + std::to_string(rgb[2]);
    int level = 0;
    if (Attribute(dir, "trigger") == "pattern") {
      const std::string pattern = Attribute(dir, "pattern");
      const std::vector<int> steps = Numbers(pattern);
      for (size_t s = 0; s < steps.size(); s += 2) level = std::max(level, steps[s]);
      const std::string repeat = Attribute(dir, "repeat");
      look += " pattern " + pattern + (repeat == "-1" ? "" : " repeat " + repeat);
      view.mode = "pattern";
    } else {
      const std::vector<int> brightness = Numbers(Attribute(dir, "brightness"));
      level = brightness.empty() ? 0 : brightness[0];
      look += " brightness " + std::to_string(level);
      if (view.mode.empty()) view.mode = "steady";
    }
    view.level = std::max(view.level, level);
    view.colours.push_back(static_cast<uint32_t>(
        (std::clamp(rgb[0], 0, 255) << 16) | (std::clamp(rgb[1], 0, 255) << 8) |
        std::clamp(rgb[2], 0, 255)));
    looks.push_back(look);
  }
  const long differ = std::count_if(looks.begin(), looks.end(),
                                    [&](const std::string& l) { return l != looks[0]; });
  view.line = "ring " + looks[0];
  if (differ > 0) {
    view.line += " (" + std::to_string(differ) + " of " + std::to_string(kLeds) +
                 " LEDs differ)";
  }
  if (looks == last_looks_) return;
  last_looks_ = looks;
  on_ring_(view);
}

}  // namespace morvane::ap
