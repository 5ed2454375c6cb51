#!/usr/bin/env python3
"""Writes the seed corpora of the fuzzers into fuzz/corpus/<target>/.

The seeds are what the daemon meets when all is well: the simulator's
settings and VPD cache, a wave and a press as the kernel records them, a
configuration with a default device, and the D-Bus messages of its peers,
marshalled here byte for byte; and, for the settings and the VPD cache,
what a bad image holds (CRLF, a NUL byte, unquoted values, escapes). Run
it again after changing a seed.
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
# What a bad image holds: each bad line costs only itself.
write("key_value_store", "crlf",
      "PLATFORM_TOUCH_INPUT_EVENT_PATH='/dev/input/event0'\r\n"
      "PLATFORM_HAS_NSS_SUPPORT=1\r\n")
write("key_value_store", "nul_byte",
      "PLATFORM_HAS_NSS_SUPPORT=1\0\n"
      "PLATFORM_TOUCH_INPUT_EVENT_PATH='/dev/input/event0'\n")
write("key_value_store", "bad_line_first",
      "export PATH\nPLATFORM_TOUCH_INPUT_EVENT_PATH='/dev/input/event0'\n")
write("key_value_store", "forged_line",
      b"PLATFORM_TOUCH_INPUT_EVENT_PATH='/dev/x\x1b[2J\\n<0>forged'\n"
      b"\xff\xfe not utf-8\n")

# --- VPD cache ------------------------------------------------------------

write("vpd_cache", "full",
      '"ps_calibration"="123"\n"plthres"="100"\n"phthres"="200"\n')
write("vpd_cache", "one_missing_crlf",
      '# cache\r\n"ps_calibration"="7"\r\n"phthres"=""\r\n')
write("vpd_cache", "short_values", '"ps_calibration"=1\n"plthres"=\'\'\n')
# Values not enclosed in double quotes: each is skipped, the others kept.
write("vpd_cache", "empty_value", '"ps_calibration"=\n"plthres"="40"\n')
write("vpd_cache", "one_character", '"ps_calibration"="\n"phthres"="9"\n')
write("vpd_cache", "unquoted", '"plthres"=100\n"phthres"="200"\n')
write("vpd_cache", "escape_in_value",
      b'"ps_calibration"="1\x1b[2J\\n<0>x"\n"plthres"="4\xff"\n')
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

# --- D-Bus messages ---------------------------------------------------------
# Little-endian D-Bus messages; values are Python objects, variants are
# (signature, value) pairs.

ALIGN = {"y": 1, "b": 4, "u": 4, "i": 4, "s": 4, "o": 4, "g": 1, "a": 4,
         "v": 1, "(": 8, "{": 8}


def single(sig):
    """The first complete type of |sig| and the rest."""
    if sig[0] == "a":
        inner, rest = single(sig[1:])
        return "a" + inner, rest
    if sig[0] in "({":
        depth, i = 0, 0
        while True:
            if sig[i] in "({":
                depth += 1
            elif sig[i] in ")}":
                depth -= 1
                if depth == 0:
                    return sig[:i + 1], sig[i + 1:]
            i += 1
    return sig[0], sig[1:]


def types(sig):
    out = []
    while sig:
        t, sig = single(sig)
        out.append(t)
    return out


class Marshaller:
    def __init__(self):
        self.data = bytearray()

    def pad(self, n):
        while len(self.data) % n:
            self.data.append(0)

    def put(self, sig, value):
        code = sig[0]
        self.pad(ALIGN[code])
        if code == "y":
            self.data.append(value)
        elif code in "bu":
            self.data += struct.pack("<I", int(value))
        elif code == "i":
            self.data += struct.pack("<i", value)
        elif code in "so":
            raw = value.encode()
            self.data += struct.pack("<I", len(raw)) + raw + b"\0"
        elif code == "g":
            raw = value.encode()
            self.data += bytes([len(raw)]) + raw + b"\0"
        elif code == "v":
            self.put("g", value[0])
            self.put(value[0], value[1])
        elif code in "({":
            for t, v in zip(types(sig[1:-1]), value):
                self.put(t, v)
        elif code == "a":
            element = sig[1:]
            at = len(self.data)
            self.data += b"\0\0\0\0"
            self.pad(ALIGN[element[0]])
            start = len(self.data)
            items = value.items() if element[0] == "{" else value
            for item in items:
                self.put(element, item)
            struct.pack_into("<I", self.data, at, len(self.data) - start)


CALL, RETURN, ERROR, SIGNAL = 1, 2, 3, 4


def message(kind, serial, body_sig="", body=(), path=None, interface=None,
            member=None, error=None, reply_serial=None, sender=None):
    body_m = Marshaller()
    for t, v in zip(types(body_sig), body):
        body_m.put(t, v)
    fields = []
    for code, sig, value in ((1, "o", path), (2, "s", interface),
                             (3, "s", member), (4, "s", error),
                             (5, "u", reply_serial), (7, "s", sender),
                             (8, "g", body_sig or None)):
        if value is not None:
            fields.append((code, (sig, value)))
    header = Marshaller()
    header.data += bytes([ord("l"), kind, 0, 1])
    header.data += struct.pack("<II", len(body_m.data), serial)
    header.put("a(yv)", fields)
    header.pad(8)
    return bytes(header.data + body_m.data)


def program(*ops):
    return bytes([len(ops)]) + bytes(ops)


# Program operations (see dbus_message_fuzzer.cc); each message takes them
# up to its END.
READ_U, READ_I, READ_B, READ_S, READ_O, READ_AY, READ_AS, READ_AO = range(8)
VARIANT_S = 11
(ENTER, EXIT, SKIP, MORE, END, DICT_SV, MANAGED, PROPERTIES,
 INTERFACES) = range(16, 25)

GROUP = "org.tessaly.ap.GroupMonitor"
CONFIGURATION = "org.tessaly.ap.Controller.Configuration"
record = ("ay", configuration)
properties_changed = message(
    SIGNAL, 7, "sa{sv}as",
    (GROUP, {"IsRoot": ("b", True), "Lost": ("b", False),
             "RootSoftwareVersion": ("s", "1.2")}, ["ConnectedToRoot"]),
    path="/org/tessaly/ap/GroupMonitor",
    interface="org.freedesktop.DBus.Properties", member="PropertiesChanged",
    sender=":1.3")
write("dbus_message", "properties_changed",
      program(READ_S, PROPERTIES, READ_AS, END) + properties_changed)

managed_objects = message(
    RETURN, 9, "a{oa{sa{sv}}}",
    ({"/org/tessaly/ap/Controller/Configuration": {
        CONFIGURATION: {"DeviceConfiguration": record,
                        "RuntimeState": ("ay", b"")},
        "org.freedesktop.DBus.Properties": {}}},),
    reply_serial=4, sender=":1.2")
interfaces_added = message(
    SIGNAL, 10, "oa{sa{sv}}",
    ("/org/tessaly/ap/Controller/Configuration",
     {CONFIGURATION: {"DeviceConfiguration": record}}),
    path="/org/tessaly/ap/Controller",
    interface="org.freedesktop.DBus.ObjectManager", member="InterfacesAdded",
    sender=":1.2")
interfaces_removed = message(
    SIGNAL, 11, "oas",
    ("/org/tessaly/ap/Controller/Configuration", [CONFIGURATION]),
    path="/org/tessaly/ap/Controller",
    interface="org.freedesktop.DBus.ObjectManager",
    member="InterfacesRemoved", sender=":1.2")
write("dbus_message", "object_manager",
      program(MANAGED, END, READ_O, INTERFACES, END, READ_O, READ_AS, END) +
      managed_objects + interfaces_added + interfaces_removed)

connection_manager = message(
    RETURN, 3, "a{sv}",
    ({"ConnectionState": ("s", "online"), "Interfaces": ("as", ["wan0"]),
      "Services": ("ao", ["/service/1"]), "Count": ("u", 2)},),
    reply_serial=6, sender=":1.4")
property_changed = message(
    SIGNAL, 4, "sv", ("ConnectionState", ("s", "offline")), path="/",
    interface="org.tessaly.quorrel.Manager", member="PropertyChanged",
    sender=":1.4")
write("dbus_message", "connection_manager",
      program(DICT_SV, VARIANT_S, SKIP, SKIP, SKIP, END, READ_S, VARIANT_S,
              END) +
      connection_manager + property_changed)

set_led_state = message(
    CALL, 12, "ssu", ("vox", "in_progress", 30),
    path="/org/tessaly/ap/AudioVisual/Manager",
    interface="org.tessaly.ap.AudioVisual.Manager", member="SetLedState",
    sender=":1.5")
name_owner_changed = message(
    SIGNAL, 2, "sss", ("org.tessaly.quorrel", "", ":1.4"),
    path="/org/freedesktop/DBus", interface="org.freedesktop.DBus",
    member="NameOwnerChanged", sender="org.freedesktop.DBus")
write("dbus_message", "calls_and_owners",
      program(READ_S, READ_S, READ_U, END, READ_S, READ_S, READ_S, END) +
      set_led_state + name_owner_changed)

job = message(RETURN, 5, "o", ("/com/ubuntu/Upstart/jobs/ap",),
              reply_serial=2, sender=":1.6")
instances = message(RETURN, 6, "ao", (["/com/ubuntu/Upstart/jobs/ap/_"],),
                    reply_serial=3, sender=":1.6")
failed = message(ERROR, 7, "s", ("no such job",),
                 error="com.ubuntu.Upstart0_6.Error.UnknownJob",
                 reply_serial=4, sender=":1.6")
nested = message(RETURN, 8, "a(iy)v", ([(-1, 2), (3, 4)], ("ay", b"\x01")),
                 reply_serial=5, sender=":1.6")
write("dbus_message", "replies",
      program(READ_O, END, READ_AO, END, READ_S, END, ENTER, ENTER, READ_I,
              EXIT, SKIP, MORE, EXIT, VARIANT_S, READ_AY, END) +
      job + instances + failed + nested)

# --- the clients' conversation with their peers -----------------------------
# Serials of the clients' calls on the fuzzer's connection (Hello is 1).
GET_PROPERTIES, GET_MANAGED_OBJECTS, GET_ALL = 4, 8, 11

configuration_reply = message(
    RETURN, 20, "a{oa{sa{sv}}}",
    ({"/org/tessaly/ap/Controller/Configuration": {
        CONFIGURATION: {"DeviceConfiguration": record,
                        "RuntimeState": ("ay", b"\x08\x01")}}},),
    reply_serial=GET_MANAGED_OBJECTS, sender=":1.2")
group_reply = message(
    RETURN, 21, "a{sv}",
    ({"IsRoot": ("b", False), "ConnectedToRoot": ("b", True),
      "Lost": ("s", "wrong type"), "RootSoftwareVersion": ("s", "1.2")},),
    reply_serial=GET_ALL, sender=":1.3")
write("dbus_clients", "replies",
      configuration_reply + group_reply +
      message(RETURN, 22, "a{sv}",
              ({"ConnectionState": ("s", "online")},),
              reply_serial=GET_PROPERTIES, sender=":1.4"))

configuration_changed = message(
    SIGNAL, 23, "sa{sv}as",
    (CONFIGURATION, {"DeviceConfiguration": ("ay", b"")}, ["RuntimeState"]),
    path="/org/tessaly/ap/Controller/Configuration",
    interface="org.freedesktop.DBus.Properties", member="PropertiesChanged",
    sender=":1.2")
write("dbus_clients", "signals",
      configuration_reply + interfaces_added + configuration_changed +
      properties_changed + property_changed + interfaces_removed)

write("dbus_clients", "owners_change",
      group_reply +
      message(SIGNAL, 24, "sss", ("org.tessaly.ap.GroupMonitor", ":1.3", ""),
              path="/org/freedesktop/DBus", interface="org.freedesktop.DBus",
              member="NameOwnerChanged", sender="org.freedesktop.DBus") +
      message(SIGNAL, 25, "sss", ("org.tessaly.quorrel", "", ":1.9"),
              path="/org/freedesktop/DBus", interface="org.freedesktop.DBus",
              member="NameOwnerChanged", sender="org.freedesktop.DBus") +
      message(ERROR, 26, "s", ("no",),
              error="org.freedesktop.DBus.Error.ServiceUnknown",
              reply_serial=GET_PROPERTIES, sender="org.freedesktop.DBus"))
