// Preloaded into the daemon by the simulator. A real IIO driver hands out
// the event descriptor of a sensor through one ioctl; the simulated sensor
// is a plain file, so this library answers that ioctl for it, and only for
// it, with a descriptor of the simulator's event FIFO. Every other ioctl
// goes to the C library unchanged.
//
//   AP_SIM_IIO_DEVICE=<path>  the simulated sensor's device node
//   AP_SIM_IIO_EVENTS=<path>  the FIFO the simulator writes IIO events to

#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <unistd.h>

// IIO_GET_EVENT_FD_IOCTL: _IOR('i', 0x90, int).
#define SIM_IIO_GET_EVENT_FD_IOCTL 0x80046990UL

typedef int (*IoctlFunction)(int fd, unsigned long request, ...);

static int IsSimulatedDevice(int fd) {
  const char* device = getenv("AP_SIM_IIO_DEVICE");
  if (device == NULL || *device == '\0') return 0;
  char wanted[PATH_MAX];
  if (realpath(device, wanted) == NULL) return 0;
  char link[64];
  snprintf(link, sizeof(link), "/proc/self/fd/%d", fd);
  char actual[PATH_MAX];
  const ssize_t n = readlink(link, actual, sizeof(actual) - 1);
  if (n < 0) return 0;
  actual[n] = '\0';
  return strcmp(actual, wanted) == 0;
}

int ioctl(int fd, unsigned long request, ...) {
  va_list args;
  va_start(args, request);
  void* argument = va_arg(args, void*);
  va_end(args);

  if (request == SIM_IIO_GET_EVENT_FD_IOCTL && IsSimulatedDevice(fd)) {
    const char* events = getenv("AP_SIM_IIO_EVENTS");
    if (events == NULL || argument == NULL) {
      errno = ENOTTY;
      return -1;
    }
    const int event_fd = open(events, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (event_fd < 0) return -1;
    *(int*)argument = event_fd;
    return 0;
  }

  static IoctlFunction next = NULL;
  if (next == NULL) {
    next = (IoctlFunction)dlsym(RTLD_NEXT, "ioctl");
    if (next == NULL) {
      errno = ENOSYS;
      return -1;
    }
  }
  return next(fd, request, argument);
}
