#ifndef AV_IIO_EVENT_STREAM_H_
#define AV_IIO_EVENT_STREAM_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "platform/file_stream.h"

namespace morvane::ap {

class TaskLoop;

// One event of an IIO device, the kernel's 16-byte record: the event code
// (channel, type, direction, ...) and the device's timestamp.
struct IioEvent {
  uint64_t id;
  int64_t timestamp_ns;
};
static_assert(sizeof(IioEvent) == 16, "the kernel's struct iio_event_data");

// Delivers the events of an IIO device (the proximity sensor) to one
// callback, read without blocking on the loop: each wake-up drains every
// whole record pending. The event descriptor comes from the device node
// through the kernel's ioctl; a derived class may supply it from elsewhere.
// A read error stops the delivery for good (it is logged once).
class IioEventStream {
 public:
  using EventCallback = std::function<void(const IioEvent& event)>;

  // Opens nothing yet. |loop| must outlive the stream.
  IioEventStream(std::string device_path, TaskLoop* loop);
  IioEventStream(const IioEventStream&) = delete;
  IioEventStream& operator=(const IioEventStream&) = delete;
  // Closes the event descriptor; no callback runs afterwards.
  virtual ~IioEventStream();

  // Runs on the loop once per record, in arrival order; it must not
  // destroy the stream. Records that arrive while none is set are dropped.
  void set_event_callback(EventCallback callback) {
    event_callback_ = std::move(callback);
  }

  // Runs on the loop once delivery stops after a successful Start() (a
  // read error, the end of the stream, a failed wait), with stop_reason();
  // it must not destroy the stream.
  using StoppedCallback = std::function<void(const std::string& why)>;
  void set_stopped_callback(StoppedCallback callback) {
    stopped_callback_ = std::move(callback);
  }

  // Opens the event descriptor and waits for events. Returns false, having
  // logged why, when no event will ever be delivered.
  bool Start();

  // Whether events are read: from a successful Start() until delivery stops.
  bool reading() const { return reading_; }
  // Why events are not read, for people (escaped outside text); empty while
  // they are and before Start().
  const std::string& stop_reason() const { return stop_reason_; }

 protected:
  // The event descriptor of the device, or -1 after logging why. The device
  // node itself is closed in every case.
  virtual int OpenEventDescriptor();

 private:
  bool WaitForEvents();
  void OnDataReady(FileStream::AccessMode mode);
  // Delivery ends for good: says why to the owner.
  void Stopped(std::string why);

  const std::string device_path_;
  TaskLoop* const loop_;
  std::unique_ptr<FileStream> stream_;
  EventCallback event_callback_;
  StoppedCallback stopped_callback_;
  bool reading_ = false;
  std::string stop_reason_;
};

}  // namespace morvane::ap

#endif  // AV_IIO_EVENT_STREAM_H_
