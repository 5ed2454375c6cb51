#!/usr/bin/env python3
"""Writes the seed corpora of the fuzzers into fuzz/corpus/<target>/.

The seeds are what the daemon meets when all is well: the simulator's
settings and VPD cache, a wave and a press as the kernel records them, a
configuration with a default device. Run it again after changing a seed.
"""

import os
import struct

CORPUS = os.path.join(os.path.dirname(os.path.abspath(__file__)), "corpus")


def write(target, name, data):
    os.makedirs(os.path.join(CORPUS, target), exist_ok=True)
    if isinstance(data, str):
        data = data.encode()
    with open(os.path.join(CORPUS, target, name), "wb") as f:
        f.write(data)


# FuzzedDataProvider takes its numbers from the end of the input, first
# byte last: these build that tail.
def tail_byte(value_minus_min, span):
    return bytes([value_minus_min % span])


def tail_int(value, size):
    # The first byte consumed (the last in the file) is the most significant.
    return value.to_bytes(size, "big")[::-1]


# --- settings files -------------------------------------------------------

write("key_value_store", "platform_settings.sh",
      "# Simulated hardware model.\n"
      "PLATFORM_TOUCH_INPUT_EVENT_PATH='/dev/input/event0'\n"
      "PLATFORM_SETUP_SSID_MODEL='sim'\n"
      "PLATFORM_HAS_AUXILIARY_RADIO=1\n"
      "PLATFORM_HAS_NSS_SUPPORT=0\n")
write("key_value_store", "quoting",
      "  # indented comment\n\n"
      "PLATFORM_SETUP_SSID_MODEL='it'\"'\"'s'\r\n"
      "PLATFORM_TOUCH_INPUT_EVENT_PATH=/unquoted\n"
      "A=b=c\n=\nPLATFORM_HAS_NSS_SUPPORT=yes")
write("key_value_store", "no_equals", "A=1\nnot a pair\n")

# --- VPD cache ------------------------------------------------------------

write("vpd_cache", "full",
      '"ps_calibration"="123"\n"plthres"="100"\n"phthres"="200"\n')
write("vpd_cache", "one_missing_crlf",
      '# cache\r\n"ps_calibration"="7"\r\n"phthres"=""\r\n')
write("vpd_cache", "short_values", '"ps_calibration"=1\n"plthres"=\'\'\n')
# An empty value: the daemon's designed end.
write("vpd_cache", "empty_value", '"plthres"=\n')
write("vpd_cache", "unparsable", '"ps_calibration" "123"\n')

# --- IIO records ------------------------------------------------------------

def iio_record(direction, timestamp_ns, channel=8, event_type=0):
    high = (event_type << 24) | (direction << 16) | channel
    return struct.pack("<Qq", high << 32, timestamp_ns)


RISING, FALLING = 1, 2
wave = iio_record(FALLING, 1_000_000_000) + iio_record(RISING, 1_300_000_000)
# One record a piece (piece length 16 each).
write("iio_event", "wave", wave + tail_byte(15, 64) * 2)
write("iio_event", "slow_and_wrapped",
      iio_record(FALLING, 2**63 - 100) + iio_record(RISING, -2**63 + 100) +
      iio_record(FALLING, 0) + iio_record(RISING, 500_000_000) +
      tail_byte(63, 64))
write("iio_event", "foreign_and_split",
      iio_record(RISING, 5, channel=3) + iio_record(FALLING, 5, event_type=1) +
      wave + tail_byte(9, 64) + tail_byte(20, 64))

# --- input records (struct input_event of a 64-bit machine) ---------------

EV_SYN, EV_KEY, KEY_WPS_BUTTON = 0, 1, 0x211


def input_record(sec, usec, type_, code, value):
    return struct.pack("<qqHHi", sec, usec, type_, code, value)


def press(sec):
    return (input_record(sec, 0, EV_KEY, KEY_WPS_BUTTON, 1) +
            input_record(sec, 0, EV_SYN, 0, 0) +
            input_record(sec, 80_000, EV_KEY, KEY_WPS_BUTTON, 0) +
            input_record(sec, 80_000, EV_SYN, 0, 0))


def pieces(records, *steps):
    """|records| written in pieces of (length, delay_us), the last step
    repeated while bytes are left."""
    tail = b""
    for length, delay_us in steps:
        tail = tail_int(delay_us, 3) + tail_byte(length - 1, 64) + tail
    return records + tail


write("input_event", "two_presses",
      pieces(press(1_700_000_000) + press(1_700_000_001),
             (48, 0), (48, 250_000)))
write("input_event", "presses_too_close",
      pieces(press(1_700_000_000) * 3, (24, 0), (24, 100_000)))
write("input_event", "split_record",
      pieces(press(0), (10, 0), (14, 0), (64, 200_000)))
# Found by this fuzzer: seconds beyond what microseconds can hold.
write("input_event", "time_beyond_any_clock",
      pieces(input_record(2**62, 999_999, EV_KEY, KEY_WPS_BUTTON, 1), (24, 0)))

# --- protobuf records -------------------------------------------------------

def varint(n):
    n &= (1 << 64) - 1
    out = b""
    while True:
        b = n & 0x7F
        n >>= 7
        if n:
            out += bytes([b | 0x80])
        else:
            return out + bytes([b])


def field(number, value):
    if isinstance(value, int):
        return varint(number << 3) + varint(value)
    return varint(number << 3 | 2) + varint(len(value)) + value


device = field(1, b"02:aa:bb:cc:dd:ee") + field(2, 600)
configuration = (field(17, 30) + field(18, 0) + field(5, 0) +
                 field(23, device) +
                 field(12, field(1, b"02:11:22:33:44:55") + field(2, 1)) +
                 field(999, b"a field of a newer controller"))
NOW = tail_int(1_700_000_000_000_000, 8)
write("configuration_record", "with_default_device", configuration + NOW)
write("configuration_record", "bridge_mode",
      field(5, 1) + field(23, device) + NOW)
write("configuration_record", "runtime_state",
      field(1, 1) + field(3, b"wan0") + field(10, b"192.0.2.53") + NOW)
write("configuration_record", "saturating_expiry",
      field(23, field(1, b"x") + field(2, 2**31 - 1)) +
      tail_int(2**63 - 1, 8))
