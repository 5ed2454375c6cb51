#ifndef STUBS_CLIPS_CLIPS_H_
#define STUBS_CLIPS_CLIPS_H_

#include <string>

namespace morvane::ap {

// Stand-ins for the device's sound clips, generated: headerless signed 16-bit little-endian PCM at
// 48000 frames per second, interleaved when there are two channels.

// A short touch-feedback click, one channel.
std::string MakeClickClip();

// The network-creation chime, two channels: two decaying tones.
std::string MakeChimeClip();

}  // namespace morvane::ap

#endif  // STUBS_CLIPS_CLIPS_H_
