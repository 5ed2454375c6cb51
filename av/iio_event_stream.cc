#include "av/iio_event_stream.h"

#include <fcntl.h>
#include <glog/logging.h>
#include <linux/iio/events.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstring>
#include <utility>

#include "platform/log_text.h"

namespace morvane::ap {

static_assert(IIO_GET_EVENT_FD_IOCTL == 0x80046990,
              "the IIO event descriptor request");
static_assert(sizeof(iio_event_data) == sizeof(IioEvent),
              "the kernel's IIO event record");

IioEventStream::IioEventStream(std::string device_path, TaskLoop* loop)
    : device_path_(std::move(device_path)), loop_(loop) {}

IioEventStream::~IioEventStream() = default;

int IioEventStream::OpenEventDescriptor() {
  const int device = open(device_path_.c_str(), O_RDONLY | O_CLOEXEC);
  if (device < 0) {
    LOG(WARNING) << "Could not open device descriptor";
    return -1;
  }
  int event_fd = -1;
  const int r = ioctl(device, IIO_GET_EVENT_FD_IOCTL, &event_fd);
  close(device);
  if (r == -1 || event_fd == -1) {
    LOG(WARNING) << "Could not get event descriptor from device descriptor";
    return -1;
  }
  return event_fd;
}

bool IioEventStream::Start() {
  const int fd = OpenEventDescriptor();
  if (fd < 0) {
    LOG(WARNING) << "Unable to open IIO device";
    stop_reason_ = "cannot open " + LogText(device_path_);
    return false;
  }
  ErrorPtr error;
  stream_ = FileStream::FromFileDescriptor(fd, true, loop_, &error);
  if (!stream_) {
    close(fd);
    LOG(WARNING) << "Failed to create stream: " << LogText(error->message());
    stop_reason_ = LogText(error->message());
    return false;
  }
  reading_ = true;
  stop_reason_.clear();
  return WaitForEvents();
}

void IioEventStream::Stopped(std::string why) {
  reading_ = false;
  stop_reason_ = std::move(why);
  if (stopped_callback_) stopped_callback_(stop_reason_);
}

bool IioEventStream::WaitForEvents() {
  ErrorPtr error;
  if (!stream_->WaitForData(
          FileStream::AccessMode::kRead,
          [this](FileStream::AccessMode mode) { OnDataReady(mode); },
          &error)) {
    LOG(WARNING) << "Failed to wait for events: " << LogText(error->message());
    Stopped("failed to wait for events: " + LogText(error->message()));
    return false;
  }
  return true;
}

void IioEventStream::OnDataReady(FileStream::AccessMode mode) {
  CHECK(mode == FileStream::AccessMode::kRead)
      << "Unexpected access mode: " << static_cast<int>(mode);
  while (true) {
    if (!stream_->CanRead()) {
      WaitForEvents();
      return;
    }
    IioEvent event;
    size_t size = 0;
    bool end_of_stream = false;
    ErrorPtr error;
    if (!stream_->ReadNonBlocking(&event, sizeof(event), &size, &end_of_stream,
                                  &error)) {
      // The stream stays, unwatched: delivery stops here.
      LOG(WARNING) << "Failed to read event: " << LogText(error->message());
      Stopped("failed to read: " + LogText(error->message()));
      return;
    }
    if (end_of_stream) {
      // Only a descriptor that is not a device's ends; waiting again would
      // spin on it.
      LOG(WARNING) << "Failed to read event: end of stream";
      Stopped("end of stream");
      return;
    }
    if (size == 0) break;
    if (size != sizeof(event)) {
      LOG(WARNING) << "Event size different than expected: " << size;
      continue;
    }
    if (event_callback_) event_callback_(event);
  }
  WaitForEvents();
}

}  // namespace morvane::ap
