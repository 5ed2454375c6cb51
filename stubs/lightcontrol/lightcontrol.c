// Stand-in light-control library: records calls in LIGHTCONTROL_LOG and
// takes readings from the files named by the environment (see lightcontrol.h).

// open() flags and PATH_MAX are POSIX, not ISO C.
#define _POSIX_C_SOURCE 200809L

#include "stubs/lightcontrol/lightcontrol.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "stubs/stub_log.h"

#define LOG_VARIABLE "LIGHTCONTROL_LOG"
// An ambient file longer than this cannot hold a number 0..255 with some
// white space around it.
#define MAX_AMBIENT_TEXT 64

// Reads the ambient level from LIGHTCONTROL_AMBIENT. Returns -1 when there is
// no valid reading.
static int ReadAmbientLevel(void) {
  const char* path = getenv("LIGHTCONTROL_AMBIENT");
  if (path == NULL || path[0] == '\0') return -1;
  int fd = open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return -1;
  char text[MAX_AMBIENT_TEXT + 1];
  size_t size = 0;
  for (;;) {
    ssize_t n = read(fd, text + size, sizeof(text) - 1 - size);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      close(fd);
      if (n < 0) return -1;
      break;
    }
    size += (size_t)n;
    if (size == sizeof(text) - 1) {
      close(fd);
      return -1;
    }
  }
  text[size] = '\0';

  const char* p = text;
  while (*p == ' ' || *p == '\t' || *p == '\n' || *p == '\r') ++p;
  int level = 0;
  int digits = 0;
  for (; *p >= '0' && *p <= '9'; ++p, ++digits) {
    level = level * 10 + (*p - '0');
    if (level > 255) return -1;
  }
  while (*p == ' ' || *p == '\t' || *p == '\n' || *p == '\r') ++p;
  if (digits == 0 || *p != '\0') return -1;
  return level;
}

void light_init(bool developer_mode) {
  StubLogLine(LOG_VARIABLE, "light_init %d", developer_mode ? 1 : 0);
}

int light_set_state(int state) {
  StubLogLine(LOG_VARIABLE, "light_set_state %d", state);
  return 0;
}

int light_set_state_with_transition(int state, int transition) {
  StubLogLine(LOG_VARIABLE, "light_set_state_with_transition %d %d", state, transition);
  return 0;
}

int light_set_master_brightness(uint8_t level) {
  StubLogLine(LOG_VARIABLE, "light_set_master_brightness %u", (unsigned)level);
  return 0;
}

bool light_get_ambient_brightness(uint8_t* level) {
  int reading = level != NULL ? ReadAmbientLevel() : -1;
  if (reading < 0) {
    StubLogLine(LOG_VARIABLE, "light_get_ambient_brightness fail");
    return false;
  }
  *level = (uint8_t)reading;
  StubLogLine(LOG_VARIABLE, "light_get_ambient_brightness %d", reading);
  return true;
}

const char* light_get_proximity_device_path(void) {
  // Copied so that the caller's pointer survives later changes of the
  // environment (setenv may free the string getenv returned).
  static char device_path[PATH_MAX];
  const char* path = getenv("LIGHTCONTROL_PROXIMITY_DEVICE");
  if (path == NULL || path[0] == '\0' || strlen(path) >= sizeof(device_path)) {
    StubLogLine(LOG_VARIABLE, "light_get_proximity_device_path null");
    return NULL;
  }
  strcpy(device_path, path);
  StubLogLine(LOG_VARIABLE, "light_get_proximity_device_path %s", device_path);
  return device_path;
}
