#include "sim/device_controls.h"

#include <unistd.h>

#include <chrono>
#include <cstdio>

#include "sim/simulator.h"

namespace morvane::ap {
namespace {

// The touch button's key code: a WPS-style button.
constexpr uint16_t kButtonKeyCode = 0x211;
// Spacing of the two wave events by their timestamps.
constexpr int64_t kWaveGapNs = 200'000'000;

// The time on |Clock| (the monotonic or the wall clock) in |Unit|s.
template <typename Clock, typename Unit>
int64_t Now() {
  return Clock::now().time_since_epoch() / Unit(1);
}

}  // namespace

DeviceControls::DeviceControls(const SimDirectory& directory, SysfsBoard* board,
                               SimState* state, Reporter report,
                               std::function<void()> changed)
    : directory_(directory),
      sysfs_board_(board),
      state_(state),
      report_(std::move(report)),
      changed_(std::move(changed)) {}

bool DeviceControls::Open(ErrorPtr* error) {
  return touch_fifo_.Open(directory_.touch_fifo(), error) &&
         iio_fifo_.Open(directory_.iio_event_fifo(), error);
}

void DeviceControls::Drain() {
  touch_fifo_.Drain();
  iio_fifo_.Drain();
}

void DeviceControls::InjectWave() {
  const bool sent = iio_fifo_.Write(MakeWaveRecords(
      Now<std::chrono::steady_clock, std::chrono::nanoseconds>(), kWaveGapNs));
  report_(sent ? "inject wave" : "inject wave dropped: event FIFO full");
}

void DeviceControls::InjectPress() {
  const bool sent = touch_fifo_.Write(MakeButtonPressRecords(
      kButtonKeyCode,
      Now<std::chrono::system_clock, std::chrono::microseconds>()));
  report_(sent ? "inject press" : "inject press dropped: input FIFO full");
}

void DeviceControls::SetAmbient(int level) {
  state_->ambient = level;
  ErrorPtr board_error;
  if (sysfs_board_ && !sysfs_board_->SetAmbient(level, &board_error)) {
    report_("error " + board_error->message());
  }
  if (level < 0) {
    unlink(directory_.ambient_file().c_str());
    report_("inject ambient fail");
  } else {
    Write(directory_.ambient_file(), std::to_string(level) + "\n");
    report_("inject ambient " + std::to_string(level));
  }
  changed_();
}

void DeviceControls::SetVpdCache(bool present) {
  const std::string cache = directory_.vpd_cache();
  const std::string away = cache + ".removed";
  if (present ? rename(away.c_str(), cache.c_str())
              : rename(cache.c_str(), away.c_str())) {
    report_(std::string("error the VPD cache is already ") +
           (present ? "there" : "gone"));
    return;
  }
  if (!present) {
    // A fresh sensor, so that the next calibration shows.
    for (const char* attribute : kSensorAttributes) {
      Write(directory_.iio_sysfs_dir() + "/" + attribute, "");
    }
  }
  state_->vpd_present = present;
  report_(std::string("inject vpd ") + (present ? "restore" : "remove"));
  changed_();
}

void DeviceControls::SetAudioDown(bool down) {
  state_->audio_down = down;
  if (down) {
    Write(directory_.pavo_down_file(), "");
  } else {
    unlink(directory_.pavo_down_file().c_str());
  }
  report_(std::string("inject audio ") + (down ? "down" : "up"));
  changed_();
}

void DeviceControls::Write(const std::string& path,
                           const std::string& contents) {
  ErrorPtr error;
  if (!WriteWholeFile(path, contents, &error)) {
    report_("error " + error->message());
  }
}

void DeviceControls::Unplug(bool touch) {
  (touch ? touch_fifo_ : iio_fifo_).Close();
  report_(std::string("inject unplug ") + (touch ? "touch" : "sensor"));
}

}  // namespace morvane::ap
