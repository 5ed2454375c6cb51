// Stand-in audio server client: logs to PAVO_LOG, captures to PAVO_CAPTURE or
// plays through the default ALSA device (see pavo.h).

// open() flags and PATH_MAX are POSIX, not ISO C.
#define _POSIX_C_SOURCE 200809L

#include "stubs/pavo/pavo.h"

#include <alsa/asoundlib.h>
#include <errno.h>
#include <fcntl.h>
#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include "stubs/stub_log.h"

// Device buffer asked of ALSA. Long enough for any of our clips, so that
// snd_pcm_writei() queues the whole clip and returns at once: the daemon has
// one thread and must not wait for a sound to finish.
#define DEVICE_BUFFER_US 5000000

#define LOG_VARIABLE "PAVO_LOG"

struct pavo_client {
  snd_pcm_t* pcm;  // NULL when not playing through ALSA.
  // The parameters the device is set up for; 0 until the first play.
  int format;
  int rate;
  int channels;
};

static const char* NonEmptyEnv(const char* name) {
  const char* value = getenv(name);
  return value != NULL && value[0] != '\0' ? value : NULL;
}

static int AppendToFile(const char* path, const uint8_t* data, size_t size) {
  int fd = open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
  if (fd < 0) return -errno;
  while (size > 0) {
    ssize_t n = write(fd, data, size);
    if (n < 0) {
      if (errno == EINTR) continue;
      int error = -errno;
      close(fd);
      return error;
    }
    data += n;
    size -= (size_t)n;
  }
  return close(fd) < 0 ? -errno : 0;
}

// Queues the frames on the ALSA device, setting it up again first when the
// sample parameters differ from the previous clip's.
static int PlayOnDevice(pavo_client* client, const uint8_t* data,
                        size_t frames, size_t frame_bytes, int format,
                        int rate, int channels) {
  snd_pcm_t* pcm = client->pcm;
  int result;
  if (format != client->format || rate != client->rate ||
      channels != client->channels) {
    // A running stream cannot change parameters: cut the previous clip.
    snd_pcm_drop(pcm);
    result = snd_pcm_set_params(pcm, (snd_pcm_format_t)format,
                                SND_PCM_ACCESS_RW_INTERLEAVED,
                                (unsigned)channels, (unsigned)rate,
                                /*soft_resample=*/1, DEVICE_BUFFER_US);
    if (result < 0) {
      client->format = client->rate = client->channels = 0;
      return result;
    }
    client->format = format;
    client->rate = rate;
    client->channels = channels;
  }

  while (frames > 0) {
    snd_pcm_sframes_t written = snd_pcm_writei(pcm, data, frames);
    if (written == -EPIPE || written == -ESTRPIPE || written == -EINTR) {
      // The previous clip ran out (underrun) or the system was suspended.
      result = snd_pcm_recover(pcm, (int)written, /*silent=*/1);
      if (result < 0) return result;
      continue;
    }
    if (written < 0) return (int)written;  // -EAGAIN: the device buffer is full.
    data += (size_t)written * frame_bytes;
    frames -= (size_t)written;
  }
  // snd_pcm_set_params() starts the stream only once the buffer is full,
  // which a short clip never fills.
  if (snd_pcm_state(pcm) == SND_PCM_STATE_PREPARED) {
    result = snd_pcm_start(pcm);
    if (result < 0) return result;
  }
  return 0;
}

int pavo_helper_create_connect(pavo_client** client) {
  int result = 0;
  snd_pcm_t* pcm = NULL;
  const char* down = NonEmptyEnv("PAVO_DOWN");
  struct stat st;
  if (client == NULL) {
    result = -EINVAL;
  } else if (down != NULL && stat(down, &st) == 0) {
    result = -ECONNREFUSED;
  } else if (NonEmptyEnv("PAVO_CAPTURE") == NULL) {
    // Non-blocking, so that a busy device fails instead of stalling.
    result = snd_pcm_open(&pcm, "default", SND_PCM_STREAM_PLAYBACK,
                          SND_PCM_NONBLOCK);
  }
  if (result == 0) {
    *client = calloc(1, sizeof(**client));
    if (*client == NULL) {
      if (pcm != NULL) snd_pcm_close(pcm);
      result = -ENOMEM;
    } else {
      (*client)->pcm = pcm;
    }
  } else if (client != NULL) {
    *client = NULL;
  }
  StubLogLine(LOG_VARIABLE, "connect %d", result);
  return result;
}

int pavo_client_get_first_dev_type_idx(pavo_client* client, int type,
                                       int direction) {
  int index = client != NULL ? 0 : -EINVAL;
  StubLogLine(LOG_VARIABLE, "device %d %d -> %d", type, direction, index);
  return index;
}

int pavo_helper_play_buffer(pavo_client* client, const void* buffer,
                            size_t frames, int format, int rate, int channels,
                            int device) {
  // Whole bytes per sample; formats with partial bytes are not supported.
  int sample_bits = snd_pcm_format_physical_width((snd_pcm_format_t)format);
  size_t bytes = 0;
  int result = 0;
  if (client == NULL || (buffer == NULL && frames > 0) || rate <= 0 ||
      channels <= 0 || sample_bits <= 0 || sample_bits % 8 != 0 ||
      frames > SIZE_MAX / (size_t)channels / (size_t)(sample_bits / 8)) {
    result = -EINVAL;
  } else {
    size_t frame_bytes = (size_t)channels * (size_t)(sample_bits / 8);
    bytes = frames * frame_bytes;
    const char* capture = NonEmptyEnv("PAVO_CAPTURE");
    if (capture != NULL) {
      result = AppendToFile(capture, buffer, bytes);
    } else if (client->pcm != NULL && frames > 0) {
      result = PlayOnDevice(client, buffer, frames, frame_bytes, format, rate,
                            channels);
    }
  }
  StubLogLine(LOG_VARIABLE, "play frames=%zu format=%d rate=%d channels=%d device=%d bytes=%zu -> %d",
          frames, format, rate, channels, device, bytes, result);
  return result;
}

void pavo_client_destroy(pavo_client* client) {
  if (client == NULL) return;
  if (client->pcm != NULL) snd_pcm_close(client->pcm);
  free(client);
  StubLogLine(LOG_VARIABLE, "destroy");
}
