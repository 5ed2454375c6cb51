#include "platform/file_stream.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace morvane::ap {
namespace {

constexpr char kDomain[] = "ap";
constexpr char kIoError[] = "io_error";

}  // namespace

std::unique_ptr<FileStream> FileStream::FromFileDescriptor(int fd,
                                                           bool own_descriptor,
                                                           TaskLoop* loop,
                                                           ErrorPtr* error) {
  const int flags = fd < 0 ? -1 : fcntl(fd, F_GETFL);
  if (flags < 0) {
    Error::AddToPrintf(error, FROM_HERE, kDomain, kIoError,
                       "Invalid file descriptor %d", fd);
    return nullptr;
  }
  if (!(flags & O_NONBLOCK) && fcntl(fd, F_SETFL, flags | O_NONBLOCK) < 0) {
    Error::AddToPrintf(error, FROM_HERE, kDomain, kIoError,
                       "Failed to make descriptor %d non-blocking: %s", fd,
                       strerror(errno));
    return nullptr;
  }
  const int access = flags & O_ACCMODE;
  const bool readable = access == O_RDONLY || access == O_RDWR;
  return std::unique_ptr<FileStream>(
      new FileStream(fd, own_descriptor, readable, loop));
}

FileStream::FileStream(int fd, bool own_descriptor, bool readable,
                       TaskLoop* loop)
    : fd_(fd),
      own_descriptor_(own_descriptor),
      readable_(readable),
      loop_(loop) {}

FileStream::~FileStream() {
  // Cancel before closing: the loop must not watch a closed descriptor.
  if (pending_wait_ != 0) loop_->CancelTask(pending_wait_);
  if (own_descriptor_) close(fd_);
}

bool FileStream::ReadNonBlocking(void* buffer, size_t size, size_t* size_read,
                                 bool* end_of_stream, ErrorPtr* error) {
  *size_read = 0;
  if (end_of_stream) *end_of_stream = false;
  if (size == 0) return true;
  while (true) {
    const ssize_t n = read(fd_, buffer, size);
    if (n > 0) {
      *size_read = static_cast<size_t>(n);
      return true;
    }
    if (n == 0) {
      if (end_of_stream) *end_of_stream = true;
      return true;
    }
    if (errno == EINTR) continue;
    if (errno == EAGAIN || errno == EWOULDBLOCK) return true;
    Error::AddTo(error, FROM_HERE, kDomain, kIoError, strerror(errno));
    return false;
  }
}

bool FileStream::WaitForData(AccessMode mode, WaitCallback callback,
                             ErrorPtr* error) {
  if (mode != AccessMode::kRead) {
    Error::AddTo(error, FROM_HERE, kDomain, kIoError,
                 "Waiting for write access is not supported");
    return false;
  }
  if (!readable_) {
    Error::AddTo(error, FROM_HERE, kDomain, kIoError,
                 "Stream is not open for reading");
    return false;
  }
  if (pending_wait_ != 0) {
    Error::AddTo(error, FROM_HERE, kDomain, kIoError,
                 "A wait for data is already pending");
    return false;
  }
  const TaskId id = loop_->WatchReadable(fd_, [this] { OnReadable(); });
  if (id == 0) {
    Error::AddToPrintf(error, FROM_HERE, kDomain, kIoError,
                       "Failed to watch descriptor %d", fd_);
    return false;
  }
  pending_wait_ = id;
  callback_ = std::move(callback);
  return true;
}

void FileStream::OnReadable() {
  pending_wait_ = 0;
  // Take the callback first: it may destroy this stream or wait again.
  WaitCallback callback = std::move(callback_);
  callback_ = nullptr;
  callback(AccessMode::kRead);
}

}  // namespace morvane::ap
