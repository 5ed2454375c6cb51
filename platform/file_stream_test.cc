#include "platform/file_stream.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "platform/event_loop.h"
#include "platform/fake_task_loop.h"

namespace morvane::ap {
namespace {

using AccessMode = FileStream::AccessMode;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class FileStreamTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(pipe2(fds_, O_CLOEXEC), 0);
    ErrorPtr error;
    stream_ = FileStream::FromFileDescriptor(fds_[0], /*own_descriptor=*/true,
                                             &loop_, &error);
    ASSERT_TRUE(stream_) << error->message();
  }
  void TearDown() override {
    if (fds_[1] >= 0) close(fds_[1]);
  }

  void Write(const std::string& data) {
    ASSERT_EQ(write(fds_[1], data.data(), data.size()),
              static_cast<ssize_t>(data.size()));
  }
  void CloseWriter() {
    close(fds_[1]);
    fds_[1] = -1;
  }
  // Reads once into a 16-byte buffer; returns what was read.
  std::string Read(bool* end_of_stream) {
    char buffer[16];
    size_t size_read = 99;
    ErrorPtr error;
    EXPECT_TRUE(stream_->ReadNonBlocking(buffer, sizeof(buffer), &size_read,
                                         end_of_stream, &error));
    return std::string(buffer, size_read);
  }
  bool Wait(ErrorPtr* error = nullptr) {
    return stream_->WaitForData(
        AccessMode::kRead,
        [this](AccessMode mode) { calls_.push_back(static_cast<int>(mode)); },
        error);
  }

  FakeTaskLoop loop_;
  int fds_[2] = {-1, -1};
  std::unique_ptr<FileStream> stream_;
  std::vector<int> calls_;
};

TEST_F(FileStreamTest, FailuresAreIoErrorsAndDestructionCancelsTheWait) {
  ErrorPtr error;
  auto writer = FileStream::FromFileDescriptor(fds_[1], false, &loop_, &error);
  ASSERT_TRUE(writer);
  char buffer[4];
  size_t size_read = 99;
  auto loop = EventLoop::Create(&error);
  ASSERT_TRUE(loop);
  // epoll refuses regular files.
  auto file = FileStream::FromFileDescriptor(
      open("/proc/self/exe", O_RDONLY | O_CLOEXEC), true, loop.get(), &error);
  ASSERT_TRUE(file);

  EXPECT_FALSE(writer->CanRead());
  EXPECT_FALSE(writer->ReadNonBlocking(buffer, sizeof(buffer), &size_read,
                                       nullptr, &error));
  ASSERT_TRUE(error);
  EXPECT_EQ(error->domain(), "ap");
  EXPECT_EQ(error->code(), "io_error");
  EXPECT_EQ(error->message(), "Bad file descriptor");
  EXPECT_EQ(size_read, 0u);
  const int closed_fd = dup(fds_[1]);
  close(closed_fd);
  // Descriptors that are none; waits that cannot be: on a regular file, for
  // writing, a second one.
  const std::function<bool(ErrorPtr*)> kFailing[] = {
      [&](ErrorPtr* e) { return !!FileStream::FromFileDescriptor(-1, true, &loop_, e); },
      [&](ErrorPtr* e) {
        return !!FileStream::FromFileDescriptor(closed_fd, true, &loop_, e);
      },
      [&](ErrorPtr* e) { return file->WaitForData(AccessMode::kRead, nullptr, e); },
      [&](ErrorPtr* e) { return stream_->WaitForData(AccessMode::kWrite, nullptr, e); },
      [&](ErrorPtr* e) { return Wait() && Wait(e); },
  };
  for (size_t i = 0; i < std::size(kFailing); ++i) {
    SCOPED_TRACE(i);
    error.reset();
    EXPECT_FALSE(kFailing[i](&error));
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code(), "io_error");
  }

  // Destruction cancels the pending wait and closes an owned descriptor.
  stream_.reset();
  writer.reset();
  EXPECT_EQ(loop_.PendingTaskCount(), 0u);
  EXPECT_EQ(fcntl(fds_[0], F_GETFD), -1);
  EXPECT_NE(fcntl(fds_[1], F_GETFD), -1);
}

TEST_F(FileStreamTest, ReadsWhatIsThereAndWaitCallsBackOnceWhenReadableOrHungUp) {
  ASSERT_TRUE(fcntl(fds_[0], F_GETFL) & O_NONBLOCK);
  EXPECT_TRUE(stream_->CanRead());
  bool end_of_stream = true;
  EXPECT_EQ(Read(&end_of_stream), "");
  EXPECT_FALSE(end_of_stream);
  ASSERT_TRUE(Wait());
  loop_.RunUntilIdle();
  EXPECT_THAT(calls_, IsEmpty());

  Write("abc");
  loop_.RunUntilIdle();
  EXPECT_THAT(calls_, ElementsAre(static_cast<int>(AccessMode::kRead)));
  EXPECT_EQ(Read(nullptr), "abc");
  Write("0123456789abcdefXY");
  loop_.RunUntilIdle();
  EXPECT_THAT(calls_, ElementsAre(static_cast<int>(AccessMode::kRead)));
  EXPECT_EQ(Read(&end_of_stream), "0123456789abcdef");
  EXPECT_FALSE(end_of_stream);

  // The callback may wait again, or destroy the stream once it is drained;
  // what was written before the hang-up is read first.
  std::string received;
  std::function<void(AccessMode)> drain = [&](AccessMode) {
    const std::string chunk = Read(&end_of_stream);
    received += chunk + (end_of_stream ? "<end>" : "|");
    if (chunk.empty()) {
      stream_.reset();
    } else {
      ASSERT_TRUE(stream_->WaitForData(AccessMode::kRead, drain, nullptr));
    }
  };
  CloseWriter();
  ASSERT_TRUE(stream_->WaitForData(AccessMode::kRead, drain, nullptr));
  loop_.RunUntilIdle();

  EXPECT_EQ(received, "XY|<end>");
  EXPECT_FALSE(stream_);
}

}  // namespace
}  // namespace morvane::ap
