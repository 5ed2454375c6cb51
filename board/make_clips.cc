// Writes the daemon's sound clips into DIR (the image's
// /usr/share/sounds/ap): the same stand-in clips as the simulator plays.
#include <cstdio>
#include <fstream>
#include <string>

#include "stubs/clips/clips.h"

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: board-clips DIR\n");
    return 2;
  }
  const std::string dir = argv[1];
  std::ofstream(dir + "/touch_feedback.raw") << morvane::ap::MakeClickClip();
  std::ofstream(dir + "/network_creation.raw") << morvane::ap::MakeChimeClip();
  return 0;
}
