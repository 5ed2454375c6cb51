#include <dlfcn.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

namespace {

using IoctlFunction = int (*)(int, unsigned long, ...);

constexpr unsigned long kIioGetEventFdIoctl = 0x80046990UL;

// Loads the preload library in-process and calls its ioctl directly.
class IioPreloadTest : public testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/iio_preload_test.XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    dir_ = pattern;
    std::ofstream(Path("iio:device0"));
    std::ofstream(Path("other"));
    ASSERT_EQ(mkfifo(Path("events").c_str(), 0600), 0);
    // Held open for writing, as the simulator does.
    writer_ = open(Path("events").c_str(), O_RDWR | O_NONBLOCK);
    setenv("AP_SIM_IIO_DEVICE", Path("iio:device0").c_str(), 1);
    setenv("AP_SIM_IIO_EVENTS", Path("events").c_str(), 1);
    library_ = dlopen(SIM_IIO_PRELOAD_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library_, nullptr) << dlerror();
    ioctl_ = reinterpret_cast<IoctlFunction>(dlsym(library_, "ioctl"));
    ASSERT_NE(ioctl_, nullptr);
  }

  void TearDown() override {
    if (library_) dlclose(library_);
    if (writer_ >= 0) close(writer_);
    std::filesystem::remove_all(dir_);
  }

  std::string Path(const char* name) const { return dir_ + "/" + name; }

  std::string dir_;
  int writer_ = -1;
  void* library_ = nullptr;
  IoctlFunction ioctl_ = nullptr;
};

TEST_F(IioPreloadTest, AnswersTheEventDescriptorIoctlOnlyForTheSimulatedDevice) {
  const int device = open(Path("iio:device0").c_str(), O_RDONLY);
  int event_fd = -1;

  ASSERT_EQ(ioctl_(device, kIioGetEventFdIoctl, &event_fd), 0);

  ASSERT_GE(event_fd, 0);
  const char record[16] = {1, 2, 3};
  ASSERT_EQ(write(writer_, record, sizeof(record)), 16);
  char read_back[16] = {};
  EXPECT_EQ(read(event_fd, read_back, sizeof(read_back)), 16);
  EXPECT_EQ(memcmp(record, read_back, sizeof(record)), 0);
  close(event_fd);
  close(device);

  // Another file gets the C library's own answer: a plain file has no
  // ioctls (ENOTTY from a kernel, ENOSYS from qemu-user on the armhf build).
  const int other = open(Path("other").c_str(), O_RDONLY);
  int untouched = -1;
  errno = 0;
  ASSERT_EQ(ioctl(other, kIioGetEventFdIoctl, &untouched), -1);
  const int library_errno = errno;
  errno = 0;
  EXPECT_EQ(ioctl_(other, kIioGetEventFdIoctl, &untouched), -1);
  EXPECT_EQ(errno, library_errno);
  EXPECT_EQ(untouched, -1);
  close(other);
}

}  // namespace
