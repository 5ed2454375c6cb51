#ifndef SIM_SOUND_OUTPUT_H_
#define SIM_SOUND_OUTPUT_H_

#include <string>

namespace morvane::ap {

// Where the simulated device's sounds go.
enum class SoundOutput {
  kAuto,     // The sound card when one can be opened, else a capture file.
  kCard,     // The default ALSA device, through the audio stand-in.
  kCapture,  // A file in the simulator's directory; nothing is heard.
};

// Parses "auto", "card" or "capture"; false for anything else.
bool ParseSoundOutput(const std::string& text, SoundOutput* out);

// True if the default ALSA playback device opens now, as the audio stand-in
// opens it. ALSA's complaints about a missing card are kept quiet.
bool SoundCardAvailable();

}  // namespace morvane::ap

#endif  // SIM_SOUND_OUTPUT_H_
