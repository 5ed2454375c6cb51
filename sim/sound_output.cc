#include "sim/sound_output.h"

#include <alsa/asoundlib.h>

namespace morvane::ap {
namespace {

void IgnoreAlsaError(const char*, int, const char*, int, const char*, ...) {}

}  // namespace

bool ParseSoundOutput(const std::string& text, SoundOutput* out) {
  if (text == "auto") {
    *out = SoundOutput::kAuto;
  } else if (text == "card") {
    *out = SoundOutput::kCard;
  } else if (text == "capture") {
    *out = SoundOutput::kCapture;
  } else {
    return false;
  }
  return true;
}

bool SoundCardAvailable() {
  snd_lib_error_set_handler(IgnoreAlsaError);
  snd_pcm_t* pcm = nullptr;
  const bool opened = snd_pcm_open(&pcm, "default", SND_PCM_STREAM_PLAYBACK,
                                   SND_PCM_NONBLOCK) == 0;
  if (opened) snd_pcm_close(pcm);
  snd_lib_error_set_handler(nullptr);
  snd_config_update_free_global();
  return opened;
}

}  // namespace morvane::ap
