#include <gflags/gflags.h>

#include "av/audio_visual_daemon.h"
#include "platform/logging.h"

int main(int argc, char** argv) {
  gflags::SetUsageMessage("AV Daemon");
  gflags::ParseCommandLineFlags(&argc, &argv, true);
  morvane::ap::InitLogging(argv[0], morvane::ap::kLogToSyslog |
                                        morvane::ap::kLogToStderr |
                                        morvane::ap::kLogHeader);
  morvane::ap::AudioVisualDaemon daemon;
  return daemon.Run();
}
