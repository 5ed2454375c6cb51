#include "av/input_monitor.h"

#include <fcntl.h>
#include <linux/input.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <utility>

#include <glog/logging.h>

#include "platform/log_text.h"

namespace morvane::ap {
namespace {

constexpr char kDomain[] = "ap";
constexpr char kIoError[] = "io_error";

// The record's time in microseconds. A time no clock reaches (a 64-bit
// seconds field holds more than microseconds can) saturates instead of
// overflowing.
int64_t RecordTimeUs(int64_t sec, int64_t usec) {
  int64_t us = 0;
  if (__builtin_mul_overflow(sec, int64_t{1'000'000}, &us) ||
      __builtin_add_overflow(us, usec, &us)) {
    return sec < 0 ? INT64_MIN : INT64_MAX;
  }
  return us;
}

InputEvent Decode(const input_event& record) {
  return InputEvent{
      RecordTimeUs(record.input_event_sec, record.input_event_usec),
      record.type, record.code, record.value};
}

}  // namespace

InputMonitor::InputMonitor(TaskLoop* loop, std::string device_path,
                           EventCallback callback)
    : loop_(loop),
      device_path_(std::move(device_path)),
      callback_(std::move(callback)) {}

InputMonitor::~InputMonitor() = default;

bool InputMonitor::Start(ErrorPtr* error) {
  const Location here{"InputMonitor::Start", __FILE__, __LINE__};
  // Non-blocking from the start: opening a FIFO read-only would otherwise
  // wait for a writer.
  const int fd = open(device_path_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) {
    Error::AddToPrintf(error, here, kDomain, kIoError,
                       "Could not open input device: %s", strerror(errno));
    return false;
  }
  stream_ = FileStream::FromFileDescriptor(fd, /*own_descriptor=*/true, loop_,
                                           nullptr);
  if (!stream_) {
    close(fd);
    Error::AddTo(error, here, kDomain, kIoError, "Failed to create stream");
    return false;
  }
  // A failed wait is logged there; the device stays open but unread.
  WaitForEvents();
  return true;
}

void InputMonitor::WaitForEvents() {
  ErrorPtr error;
  if (!stream_->WaitForData(
          FileStream::AccessMode::kRead,
          [this](FileStream::AccessMode mode) { OnDataReady(mode); },
          &error)) {
    LOG(WARNING) << "Failed to wait for events: " << LogText(error->message());
  }
}

void InputMonitor::OnDataReady(FileStream::AccessMode mode) {
  CHECK(mode == FileStream::AccessMode::kRead)
      << "Unexpected access mode: " << static_cast<int>(mode);
  while (true) {
    input_event record;
    size_t size = 0;
    bool end_of_stream = false;
    ErrorPtr error;
    if (!stream_->ReadNonBlocking(&record, sizeof(record), &size,
                                  &end_of_stream, &error)) {
      LOG(WARNING) << "Failed to read event: " << LogText(error->message());
      Stopped("failed to read: " + LogText(error->message()));
      return;
    }
    if (end_of_stream) {
      // An evdev device never ends; a FIFO whose writer left does, and would
      // be reported readable again at once, for ever.
      LOG(WARNING) << "Failed to read event: end of stream";
      Stopped("end of stream");
      return;
    }
    if (size == 0) {
      WaitForEvents();
      return;
    }
    if (size != sizeof(record)) {
      LOG(WARNING) << "Unexpected event size: " << size;
      continue;
    }
    callback_(Decode(record));
  }
}

void InputMonitor::Stopped(const std::string& why) {
  stream_.reset();
  if (stopped_callback_) stopped_callback_(why);
}

}  // namespace morvane::ap
