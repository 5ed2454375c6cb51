#ifndef PLATFORM_FILE_STREAM_H_
#define PLATFORM_FILE_STREAM_H_

#include <cstddef>
#include <functional>
#include <memory>

#include "platform/error.h"
#include "platform/task_loop.h"

namespace morvane::ap {

// A non-blocking stream over a file descriptor (a device node, a pipe),
// read on the task loop: read what is there, and when nothing is, ask to be
// called back once the descriptor becomes readable.
//
// Errors are in domain "ap" with code "io_error".
class FileStream {
 public:
  enum class AccessMode { kRead = 1, kWrite = 2 };
  using WaitCallback = std::function<void(AccessMode mode)>;

  // Wraps |fd| and switches it to non-blocking mode. With |own_descriptor|
  // the stream closes |fd| when it is destroyed. |loop| must outlive the
  // stream. Returns null and adds to |error| if |fd| is not an open
  // descriptor or cannot be made non-blocking; |fd| then stays the caller's.
  static std::unique_ptr<FileStream> FromFileDescriptor(int fd,
                                                        bool own_descriptor,
                                                        TaskLoop* loop,
                                                        ErrorPtr* error);

  FileStream(const FileStream&) = delete;
  FileStream& operator=(const FileStream&) = delete;
  // Cancels a pending wait (its callback never runs) and closes an owned
  // descriptor.
  ~FileStream();

  // Reads at most |size| bytes into |buffer| without blocking and stores the
  // count in |*size_read|:
  // - data available: true, the bytes read, |*end_of_stream| false;
  // - nothing available yet: true, 0 bytes, |*end_of_stream| false;
  // - end of stream (the writer closed): true, 0 bytes, |*end_of_stream| true;
  // - a read error: false, with the system's error text in |error|.
  // |end_of_stream| may be null when the caller does not care.
  bool ReadNonBlocking(void* buffer, size_t size, size_t* size_read,
                       bool* end_of_stream, ErrorPtr* error);

  // True if the descriptor was opened for reading.
  bool CanRead() const { return readable_; }

  // Calls |callback| once, on the loop and never from inside this call, when
  // the descriptor becomes readable (or hangs up or fails, so the reader
  // learns of it by reading). Only kRead is supported. Fails and adds to
  // |error| for kWrite, for a stream that cannot be read, while an earlier
  // wait is still pending, or if the loop cannot watch the descriptor (a
  // regular file). The callback may destroy the stream or wait again.
  bool WaitForData(AccessMode mode, WaitCallback callback, ErrorPtr* error);

 private:
  FileStream(int fd, bool own_descriptor, bool readable, TaskLoop* loop);
  void OnReadable();

  const int fd_;
  const bool own_descriptor_;
  const bool readable_;
  TaskLoop* const loop_;
  TaskId pending_wait_ = 0;
  WaitCallback callback_;
};

}  // namespace morvane::ap

#endif  // PLATFORM_FILE_STREAM_H_
