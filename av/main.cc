#include "av/audio_visual_daemon.h"
#include "platform/command_line.h"
#include "platform/logging.h"

int main(int argc, char** argv) {
  morvane::ap::ParseCommandLine(&argc, &argv, "AV Daemon", __FILE__);
  morvane::ap::InitLogging(argv[0], morvane::ap::kLogToSyslog |
                                        morvane::ap::kLogToStderr |
                                        morvane::ap::kLogHeader);
  morvane::ap::AudioVisualDaemon daemon;
  return daemon.Run();
}
