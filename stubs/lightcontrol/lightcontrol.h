#ifndef STUBS_LIGHTCONTROL_LIGHTCONTROL_H_
#define STUBS_LIGHTCONTROL_LIGHTCONTROL_H_

// The light-control library (liblightcontrol.so.1) that drives the light
// ring. This build is the stand-in for machines without the ring: it records
// each call and takes its readings from files named by the environment, which
// is read again at every call:
//
//   LIGHTCONTROL_LOG=<file>      every call appends one line to <file>, e.g.
//                                "light_set_state 6"; the line is written with
//                                a single write() on an O_APPEND descriptor, so
//                                a reader tailing the file never sees half of
//                                one.
//   LIGHTCONTROL_AMBIENT=<file>  the ambient level, decimal text 0..255.
//   LIGHTCONTROL_PROXIMITY_DEVICE=<path>
//                                the proximity sensor's IIO device path.
//
// With none set it is a silent device: calls succeed, the ambient reading
// fails and there is no proximity device. Not thread-safe.

#include <stdbool.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// Prepares the light device; call once before any other function.
// |developer_mode| says whether the device runs in developer mode.
void light_init(bool developer_mode);

// Shows the pattern of light state |state| at once. Returns 0.
int light_set_state(int state);

// Shows the pattern of |state|, entered through transition |transition|.
// Returns 0.
int light_set_state_with_transition(int state, int transition);

// Scales the brightness of every pattern; |level| is 0 (off) to 255 (full).
// Returns 0.
int light_set_master_brightness(uint8_t level);

// Stores the ambient light level (0..255, the scale of the master brightness)
// in |*level| and returns true. Returns false and leaves |*level| untouched
// when there is no reading: LIGHTCONTROL_AMBIENT unset, its file missing or
// unreadable, or holding anything but a number 0..255 (surrounding white
// space allowed).
bool light_get_ambient_brightness(uint8_t* level);

// Returns the path of the proximity sensor's IIO device, or NULL when there
// is none (LIGHTCONTROL_PROXIMITY_DEVICE unset, empty, or longer than
// PATH_MAX, which no device path can be). The string is owned
// by the library and stays valid until the next call of this function; copy
// it, never free it.
const char* light_get_proximity_device_path(void);

#ifdef __cplusplus
}  // extern "C"
#endif

#endif  // STUBS_LIGHTCONTROL_LIGHTCONTROL_H_
