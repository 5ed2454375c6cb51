// open() flags are POSIX, not ISO C.
#define _POSIX_C_SOURCE 200809L

#include "stubs/stub_log.h"

#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#define MAX_LINE 4096

void StubLogLine(const char* variable, const char* format, ...) {
  const char* path = getenv(variable);
  if (path == NULL || path[0] == '\0') return;

  char line[MAX_LINE];
  va_list args;
  va_start(args, format);
  int length = vsnprintf(line, sizeof(line) - 1, format, args);
  va_end(args);
  if (length < 0) return;
  if ((size_t)length > sizeof(line) - 2) length = sizeof(line) - 2;
  line[length++] = '\n';

  int fd = open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
  if (fd < 0) return;
  while (write(fd, line, (size_t)length) < 0 && errno == EINTR) {
  }
  close(fd);
}
