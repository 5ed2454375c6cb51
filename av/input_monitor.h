#ifndef AV_INPUT_MONITOR_H_
#define AV_INPUT_MONITOR_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "platform/error.h"
#include "platform/file_stream.h"

namespace morvane::ap {

class TaskLoop;

// One decoded evdev record.
struct InputEvent {
  int64_t time;  // Wall-clock microseconds since the epoch, from the record.
  uint16_t type;
  uint16_t code;
  int32_t value;
};

// Reads an evdev character device on the task loop without blocking and
// hands each record to its owner. It knows nothing of what the events mean.
//
// Records are the kernel's struct input_event of the build target (16 bytes
// on 32-bit ARM, 24 on a 64-bit workstation), not a fixed 16-byte layout:
// a 64-bit kernel refuses a read shorter than its own record to a 64-bit
// process, so only the native record reads real devices everywhere. A read
// of any other size is dropped with a warning.
class InputMonitor {
 public:
  using EventCallback = std::function<void(const InputEvent& event)>;

  // Opens nothing yet. |loop| must outlive this object. |callback| runs on
  // the loop for each record, in order; it must not destroy the monitor.
  InputMonitor(TaskLoop* loop, std::string device_path,
               EventCallback callback);
  InputMonitor(const InputMonitor&) = delete;
  InputMonitor& operator=(const InputMonitor&) = delete;
  // Closes the device; the callback never runs afterwards.
  ~InputMonitor();

  // Opens the device read-only and starts watching it. Returns false and
  // adds an error of domain "ap", code "io_error" if the device cannot be
  // opened or wrapped in a stream. A read error later (the device went
  // away), or the end of the stream (a FIFO's writer left), is logged and
  // closes the device; only another Start() reopens it.
  bool Start(ErrorPtr* error);

  // Runs on the loop when a read error or the end of the stream closes the
  // device, with why (escaped outside text); it must not destroy the
  // monitor.
  void set_stopped_callback(std::function<void(const std::string& why)> callback) {
    stopped_callback_ = std::move(callback);
  }
  // Whether the device is open and read.
  bool reading() const { return stream_ != nullptr; }

 private:
  void WaitForEvents();
  // Reads every pending record, then waits again.
  void OnDataReady(FileStream::AccessMode mode);

  TaskLoop* const loop_;
  const std::string device_path_;
  const EventCallback callback_;
  // Closes the device and says why.
  void Stopped(const std::string& why);

  std::function<void(const std::string& why)> stopped_callback_;
  // Null until Start() succeeds and after a read error.
  std::unique_ptr<FileStream> stream_;
};

}  // namespace morvane::ap

#endif  // AV_INPUT_MONITOR_H_
