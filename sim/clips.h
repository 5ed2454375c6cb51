#ifndef SIM_CLIPS_H_
#define SIM_CLIPS_H_

#include <string>

namespace morvane::ap {

// Generated sound clips: headerless signed 16-bit little-endian PCM at
// 48000 frames per second, interleaved when there are two channels.

// A short touch-feedback click, one channel.
std::string MakeClickClip();

// The network-creation chime, two channels: two decaying tones.
std::string MakeChimeClip();

}  // namespace morvane::ap

#endif  // SIM_CLIPS_H_
