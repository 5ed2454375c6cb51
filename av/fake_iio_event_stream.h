#ifndef AV_FAKE_IIO_EVENT_STREAM_H_
#define AV_FAKE_IIO_EVENT_STREAM_H_

#include "av/iio_event_stream.h"

namespace morvane::ap {

// An event stream over a descriptor the test supplies (the read end of a
// pipe it writes records into, say) instead of an IIO device's. The stream
// takes the descriptor over once started.
class FakeIioEventStream : public IioEventStream {
 public:
  FakeIioEventStream(int fd, TaskLoop* loop)
      : IioEventStream("/nonexistent/iio:device0", loop), fd_(fd) {}

 protected:
  int OpenEventDescriptor() override { return fd_; }

 private:
  const int fd_;
};

}  // namespace morvane::ap

#endif  // AV_FAKE_IIO_EVENT_STREAM_H_
