#include <dlfcn.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "tests/fixtures/temp_dir.h"

namespace {

using IoctlFunction = int (*)(int, unsigned long, ...);

constexpr unsigned long kIioGetEventFdIoctl = 0x80046990UL;

// The preload library, loaded in-process, with its ioctl called directly.
TEST(IioPreloadTest, AnswersTheEventDescriptorIoctlOnlyForTheSimulatedDevice) {
  const morvane::ap::TempDir dir;
  dir.Write("iio:device0", "");
  dir.Write("other", "");
  ASSERT_EQ(mkfifo(dir.Path("events").c_str(), 0600), 0);
  // Held open for writing, as the simulator does.
  const int writer = open(dir.Path("events").c_str(), O_RDWR | O_NONBLOCK);
  setenv("AP_SIM_IIO_DEVICE", dir.Path("iio:device0").c_str(), 1);
  setenv("AP_SIM_IIO_EVENTS", dir.Path("events").c_str(), 1);
  void* library = dlopen(SIM_IIO_PRELOAD_LIBRARY, RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(library, nullptr) << dlerror();
  const auto preload_ioctl = reinterpret_cast<IoctlFunction>(dlsym(library, "ioctl"));
  ASSERT_NE(preload_ioctl, nullptr);

  const int device = open(dir.Path("iio:device0").c_str(), O_RDONLY);
  int event_fd = -1;

  ASSERT_EQ(preload_ioctl(device, kIioGetEventFdIoctl, &event_fd), 0);

  ASSERT_GE(event_fd, 0);
  const char record[16] = {1, 2, 3};
  ASSERT_EQ(write(writer, record, sizeof(record)), 16);
  char read_back[16] = {};
  EXPECT_EQ(read(event_fd, read_back, sizeof(read_back)), 16);
  EXPECT_EQ(memcmp(record, read_back, sizeof(record)), 0);
  close(event_fd);
  close(device);

  // Another file gets the C library's own answer: a plain file has no
  // ioctls (ENOTTY from a kernel, ENOSYS from qemu-user on the armhf build).
  const int other = open(dir.Path("other").c_str(), O_RDONLY);
  int untouched = -1;
  errno = 0;
  ASSERT_EQ(ioctl(other, kIioGetEventFdIoctl, &untouched), -1);
  const int library_errno = errno;
  errno = 0;
  EXPECT_EQ(preload_ioctl(other, kIioGetEventFdIoctl, &untouched), -1);
  EXPECT_EQ(errno, library_errno);
  EXPECT_EQ(untouched, -1);
  close(other);
  close(writer);
  dlclose(library);
}

}  // namespace
