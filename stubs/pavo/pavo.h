#ifndef STUBS_PAVO_PAVO_H_
#define STUBS_PAVO_PAVO_H_

// Client library of the audio server. This build is the stand-in for
// machines without the server. The environment is read again at every call:
//
//   PAVO_LOG=<file>      every call appends one line to <file> ("connect 0",
//                        "device 0 0 -> 0", "play frames=... -> 0", "destroy"),
//                        each with a single write() on an O_APPEND descriptor.
//   PAVO_CAPTURE=<file>  played PCM bytes are appended to <file>.
//   PAVO_DOWN=<file>     while <file> exists the server is down: connecting
//                        fails with -ECONNREFUSED.
//
// A client connected while PAVO_CAPTURE is not set opens the default ALSA
// device, so that a server switched down and up again by PAVO_DOWN can still
// be heard. Played bytes go to PAVO_CAPTURE when it is set at the
// time of the call, else to that ALSA device, else nowhere. Errors are
// negative errno values. Not thread-safe; a client is used from one thread.

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct pavo_client pavo_client;

// Creates a client connected to the server and stores it in |*client|.
// Returns 0 on success. On failure returns a non-zero error and sets |*client|
// to NULL: -ECONNREFUSED while the server is down, or the error of opening the
// default ALSA device. Release the client with pavo_client_destroy().
int pavo_helper_create_connect(pavo_client** client);

// Returns the index of the first device of node |type| (0: internal speaker)
// and |direction| (0: output), or a negative error for a NULL |client|.
// The stand-in has one device, index 0.
int pavo_client_get_first_dev_type_idx(pavo_client* client, int type,
                                       int direction);

// Queues |frames| frames of interleaved PCM from |buffer| for playback on
// device |device| and returns without waiting for them to be heard. |format|
// is an ALSA sample format number (2: signed 16-bit little-endian), |rate| in
// frames per second. The buffer is only read during the call. Returns 0 on
// success, -EINVAL for an unknown format or bad arguments, or the error of
// writing the capture file or the sound device. A sound device that cannot
// take the whole clip at once plays what fits and returns -EAGAIN: the caller
// is never stalled for the clip's length. On the sound device, a clip whose
// format, rate or channel count differs from the previous clip's cuts off
// what is left of that one.
int pavo_helper_play_buffer(pavo_client* client, const void* buffer,
                            size_t frames, int format, int rate, int channels,
                            int device);

// Disconnects and frees |client|; NULL is ignored. Sound still queued on the
// device is cut off.
void pavo_client_destroy(pavo_client* client);

#ifdef __cplusplus
}  // extern "C"
#endif

#endif  // STUBS_PAVO_PAVO_H_
