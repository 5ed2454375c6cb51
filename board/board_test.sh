#!/usr/bin/env bash
# Usage: board/board_test.sh BUILD_DIR
# Boots the virtual board with the armhf build in BUILD_DIR and checks the
# shipped daemon on it; prints "board: N passed, M failed".
set -uo pipefail
here=$(cd "$(dirname "$0")" && pwd)
build=$(realpath "$1")
source "$here/board.sh"
"$here/make-image" "$build" "$build/board-image" || exit 1
trap board_off EXIT
trap "exit 130" INT TERM
board_boot "$build/board-image" || { echo "board: the agent never answered"; exit 1; }

passed=0 failed=0
check() {  # NAME COMMAND EXPECTED [SECONDS]: COMMAND's output on the board
  board_run "$2" "${4:-60}"
  if [ "$BOARD_OUT" = "$3"$'\n' ]; then
    passed=$((passed + 1)); echo "ok   $1"
  else
    failed=$((failed + 1)); printf 'FAIL %s: expected\n%s\ngot\n%s' "$1" "$3" "$BOARD_OUT"
  fi
}
ring='for c in red green blue; do cd /sys/class/leds/ring:$c:status &&
  echo $c $(grep -o "\[pattern\]" trigger) $(cat repeat) $(cat pattern); done'
avd_up='timeout 30 bash -c "until busctl status org.tessaly.ap.AudioVisual &>/dev/null; do sleep 0.5; done"'
# upto CONDITION: waits on the board until CONDITION holds, 30 s at most.
upto() { printf 'timeout 30 bash -c %q;' "until $1; do sleep 0.2; done"; }
# log UNIT TEXT: how many of UNIT's lines this boot hold TEXT.
log() { printf 'journalctl -b -o cat -u %s | grep -cF %q' "$1" "$2"; }
status="org.tessaly.ap.AudioVisual /org/tessaly/ap/AudioVisual/Status org.tessaly.ap.AudioVisual.Status"
sensor=/sys/bus/iio/devices/iio:device0
# The capture of a clip on the sound card: on the loopback's first
# playback stream still free, which the next client to connect opens.
capture='sub=$(grep -l closed /proc/asound/Loopback/pcm0p/sub*/status | head -1 | grep -o "sub[0-9]*")
  arecord -q -D hw:Loopback,1,${sub#sub} -f S16_LE -r 48000 -c CHANNELS -d 4 /tmp/capture.wav & sleep 1'
captured='wait; hex() { od -An -v -tx1 $1 | tr -d " \n"; echo; }
  hex /usr/share/sounds/ap/CLIP.raw >/tmp/clip.hex; hex /tmp/capture.wav | grep -qFf /tmp/clip.hex && echo captured'
# What each LED shows at its brightest (the GPIO LEDs are on or off):
# "0 1 0" is green, "1 1 0" amber (red and green), whatever the animation.
levels='for c in red green blue; do tr " " "\n" </sys/class/leds/ring:$c:status/pattern |
  mawk "NR % 2 && \$1 > m { m = \$1 } END { print m + 0 }"; done | paste -sd " "'
shows() { upto "[ \"\$($levels)\" = '$1' ]"; }

board_run "systemctl is-system-running --wait" 120
check "avd active, its name owned by avd" "$avd_up; systemctl is-active avd;
  busctl call org.freedesktop.DBus /org/freedesktop/DBus org.freedesktop.DBus \
    GetConnectionUnixUser s org.tessaly.ap.AudioVisual | { read -r _ uid; id -nu \$uid; }" \
  $'active\navd'
state0=$'red [pattern] -1 0 1500 1 1500\ngreen [pattern] -1 0 1500 1 1500\nblue [pattern] -1 0 1500 1 1500'
check "ring in the start-up state" "$ring" "$state0"
check "the sensor calibrated from the VPD cache" "cd $sensor && cat in_proximity_calibbias \
  events/in_proximity_thresh_falling_value events/in_proximity_thresh_rising_value" $'37\n80\n240'

# The WAN online: the connected green; offline again: amber.
board_key w
check "w: WAN online, connected, ap-wan-online at Upstart" "$(upto "$(log board-peer@upstart 'upstart ap-wan-online') >/dev/null")
  $(shows '0 1 0') busctl get-property $status WanOnline LightState | paste -sd ' '; $levels" $'b true u 1\n0 1 0'
board_key w
check "w again: WAN offline" "$(shows '1 1 0') busctl get-property $status WanOnline LightState | paste -sd ' '; $levels" \
  $'b false u 2\n1 1 0'

board_run "${capture/CHANNELS/1}"
board_key b
check "b: the click on the card" "${captured/CLIP/touch_feedback}" captured

# The controller starts with setup done: s takes the ring into setup mode,
# s again completes setup with the chime.
board_key s
check "s: setup mode" "$(upto "$(log avd 'Light state 3, decided by setup_mode') >/dev/null") $ring" \
  $'red [pattern] 1 0 1 0 1\ngreen [pattern] 1 0 1 0 1\nblue [pattern] -1 0 750 1 750'
board_run "${capture/CHANNELS/2}"
board_key s
check "s again: setup done, the chime on the card" "${captured/CLIP/network_creation}" captured

# An operation shows over every other state for 30 s: after the others.
board_key o
check "o: an operation from group ap" "echo '${BOARD_OUT%$'\n'}'; $ring" \
  $'u 1\nred [pattern] -1 0 400 1 400\ngreen [pattern] 1 0 1 0 1\nblue [pattern] -1 0 400 1 400'
check "a caller outside ap refused" "runuser -u stranger -- busctl call $BOARD_MANAGER SetOperationInProgress u 0 2>&1" \
  "Call failed: Access denied"

board_key h
check "h: a wave prioritises the default device, with its metric" \
  "$(upto "$(log avd 'PrioritizeEvent: sample 1,') >/dev/null") $(log avd 'Metric AccessPoint.PrioritizeEvent: sample 1,');
  $(log board-peer@controller 'config set prioritized_device { mac_address: "02:00:00:00:00:01"')" $'1\n1'
# The daemon reads the sensor's events in order: when the wave after it
# lands, a wave from the slow hand would have landed before.
board_run "hand 800"
board_key h
check "a rise 800 ms after the fall is no wave" \
  "$(upto "[ \$($(log avd 'Prioritizing default device')) -ge 2 ]") $(log avd 'Wave detected')" 2

# Automatic intensity on: the brightness follows the light, on the scale's
# 500 lux; off again: the configured intensity.
level() {
  printf '%s busctl get-property %s Brightness BrightnessSource | paste -sd " "' \
    "$(upto "busctl get-property $status Brightness | grep -qx 'u $1'")" "$status"
}
check "ambient light sets the brightness" "echo 400 >$sensor/in_illuminance_input
  systemctl kill -s USR2 board-peer@controller; $(level 204)
  echo 40 >$sensor/in_illuminance_input; $(level 20)
  systemctl kill -s USR2 board-peer@controller; $(level 255)" \
  $'u 204 s "ambient"\nu 20 s "ambient"\nu 255 s "configured"'

check "kill -9: restarted, ring back" "kill -9 \$(systemctl show -p MainPID --value avd); sleep 2; $avd_up;
  systemctl is-active avd; $ring" $'active\n'"$state0"
check "SIGHUP leaves the daemon" "systemctl kill -s HUP avd; sleep 3; $avd_up; systemctl is-active avd" active
check "each log line once in the journal" "journalctl -o cat _SYSTEMD_INVOCATION_ID=\$(systemctl show -p InvocationID --value avd) |
  grep -c -e 'ring of 3 LEDs' -e 'Applying lighting configuration'" 2
# The start-up grace in real time, once: the daemon restarted above with
# the WAN offline shows the start-up state for 60 s, then the WAN failure.
# The grace starts just before the start-up line (0.4 s here under TCG):
# the gap between the two lines, in tenths of a second, is 59.0 to 60.5 s.
at='journalctl -o short-monotonic _SYSTEMD_INVOCATION_ID=$inv | grep -F "$1" |
  head -1 | sed "s/^\[ *\([0-9]*\)\.\([0-9]*\)\].*/\1\2/"'
check "the start-up grace: 60 s, then the WAN failure" "inv=\$(systemctl show -p InvocationID --value avd)
  at() { $at; }
  timeout 80 bash -c \"until journalctl -o cat _SYSTEMD_INVOCATION_ID=\$inv | grep -q 'Light state 2'; do sleep 1; done\"
  d=\$(( (\$(at 'Light state 2, decided by not_connected') - \$(at 'started: ring through')) / 100000 ))
  [ \$d -ge 590 ] && [ \$d -le 605 ] && echo 60 s || echo \$d tenths of a second" "60 s" 90

echo "board: $passed passed, $failed failed"
[ "$failed" -eq 0 ]
