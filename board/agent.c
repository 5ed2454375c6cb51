// The board's agent: creates the touch button as a kernel evdev device
// through /dev/uinput, names it in the platform settings file, and then
// answers the host over the virtio-serial port "board", one line at a time:
//   press      a press and a release of the button; answers "@ 0"
//   hand MS    the hand over the proximity sensor: below its falling
//              threshold, MS ms later above its rising one, then back
//              between them; answers "@ 0", or "@ 1" without a sensor
//   anything   run by bash with its output on the port; answers "@ STATUS"
// The host puts a time-out on every answer it waits for.
#define _GNU_SOURCE
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <linux/uinput.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <systemd/sd-daemon.h>
#include <time.h>
#include <unistd.h>

#define PORT "/dev/virtio-ports/board"
#define SETTINGS "/usr/share/ap/platform-settings.sh"
#define BUTTON_CODE 0x211
#define SENSOR "/sys/bus/iio/devices/iio:device0/"

static int Fail(const char* what) {
  fprintf(stderr, "board-agent: %s: %s\n", what, strerror(errno));
  return 1;
}

static void Emit(int fd, int type, int code, int value) {
  struct input_event event = {.type = type, .code = code, .value = value};
  if (write(fd, &event, sizeof(event)) != (ssize_t)sizeof(event)) {
    Fail("write /dev/uinput");
  }
}

// Creates the button; stores its /dev/input/eventN in |path|.
static int CreateButton(char* path, size_t size) {
  int fd = open("/dev/uinput", O_WRONLY | O_CLOEXEC);
  if (fd < 0) return -1;
  struct uinput_setup setup = {.id = {.bustype = BUS_VIRTUAL}};
  snprintf(setup.name, sizeof(setup.name), "touch button");
  char sysname[64] = "";
  if (ioctl(fd, UI_SET_EVBIT, EV_KEY) < 0 ||
      ioctl(fd, UI_SET_KEYBIT, BUTTON_CODE) < 0 ||
      ioctl(fd, UI_DEV_SETUP, &setup) < 0 || ioctl(fd, UI_DEV_CREATE) < 0 ||
      ioctl(fd, UI_GET_SYSNAME(sizeof(sysname)), sysname) < 0) {
    close(fd);
    return -1;
  }
  char dir_path[128];
  snprintf(dir_path, sizeof(dir_path), "/sys/devices/virtual/input/%s", sysname);
  DIR* dir = opendir(dir_path);
  struct dirent* entry;
  path[0] = '\0';
  while (dir && (entry = readdir(dir))) {
    if (strncmp(entry->d_name, "event", 5) == 0) {
      snprintf(path, size, "/dev/input/%s", entry->d_name);
    }
  }
  if (dir) closedir(dir);
  if (!path[0]) {
    errno = ENODEV;
    close(fd);
    return -1;
  }
  return fd;
}

static int WriteSettings(const char* event_path) {
  FILE* file = fopen(SETTINGS, "w");
  if (!file) return -1;
  fprintf(file, "PLATFORM_TOUCH_INPUT_EVENT_PATH='%s'\n", event_path);
  return fclose(file);
}

// The port appears when udev has loaded virtio_console: waits up to 30 s.
static int OpenPort(void) {
  for (int i = 0; i < 300; ++i) {
    int fd = open(PORT, O_RDWR | O_CLOEXEC | O_NOCTTY);
    if (fd >= 0) return fd;
    struct timespec tick = {0, 100 * 1000 * 1000};
    nanosleep(&tick, NULL);
  }
  return -1;
}

static int ReadNumber(const char* name, long* value) {
  FILE* file = fopen(name, "re");
  if (!file) return -1;
  int read = fscanf(file, "%ld", value);
  fclose(file);
  return read == 1 ? 0 : -1;
}

static int WriteNumber(const char* name, long value) {
  FILE* file = fopen(name, "we");
  if (!file) return -1;
  fprintf(file, "%ld\n", value);
  return fclose(file);
}

// The sensor's driver stamps each threshold event as the write crosses
// it: the time between the two writes is the gesture's.
static int MoveHand(long milliseconds, int port) {
  long falling, rising;
  if (ReadNumber(SENSOR "events/in_proximity_thresh_falling_value", &falling) ||
      ReadNumber(SENSOR "events/in_proximity_thresh_rising_value", &rising) ||
      falling < 1 || rising < falling) {
    dprintf(port, "board-agent: no proximity sensor with thresholds at " SENSOR "\n");
    return 1;
  }
  struct timespec wait = {milliseconds / 1000, milliseconds % 1000 * 1000000};
  if (WriteNumber(SENSOR "in_proximity_raw", falling - 1) ||
      nanosleep(&wait, NULL) ||
      WriteNumber(SENSOR "in_proximity_raw", rising + 1) ||
      WriteNumber(SENSOR "in_proximity_raw", (falling + rising) / 2)) {
    dprintf(port, "board-agent: move the hand: %s\n", strerror(errno));
    return 1;
  }
  return 0;
}

static int Run(const char* command, int port) {
  pid_t pid = fork();
  if (pid == 0) {
    int null = open("/dev/null", O_RDONLY);
    dup2(null, 0);
    dup2(port, 1);
    dup2(port, 2);
    execl("/bin/bash", "bash", "-c", command, (char*)NULL);
    _exit(127);
  }
  int status = 0;
  if (pid < 0 || waitpid(pid, &status, 0) < 0) return 255;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

int main(void) {
  char event_path[300];
  int button = CreateButton(event_path, sizeof(event_path));
  if (button < 0) return Fail("create the touch button");
  if (WriteSettings(event_path) != 0) return Fail("write " SETTINGS);
  printf("touch button at %s\n", event_path);
  fflush(stdout);
  // The commands it runs are not the service: they get no notify socket.
  sd_notify(1, "READY=1");

  int port = OpenPort();
  if (port < 0) return Fail("open " PORT);
  FILE* in = fdopen(dup(port), "r");
  char* line = NULL;
  size_t capacity = 0;
  ssize_t length;
  while ((length = getline(&line, &capacity, in)) > 0) {
    if (line[length - 1] == '\n') line[length - 1] = '\0';
    int status = 0;
    if (strcmp(line, "press") == 0) {
      Emit(button, EV_KEY, BUTTON_CODE, 1);
      Emit(button, EV_SYN, SYN_REPORT, 0);
      Emit(button, EV_KEY, BUTTON_CODE, 0);
      Emit(button, EV_SYN, SYN_REPORT, 0);
    } else if (strncmp(line, "hand ", 5) == 0) {
      status = MoveHand(strtol(line + 5, NULL, 10), port);
    } else {
      status = Run(line, port);
    }
    dprintf(port, "@ %d\n", status);
  }
  return Fail("read " PORT);
}
