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
check() {  # NAME COMMAND EXPECTED: COMMAND's output on the board
  board_run "$2" 60
  if [ "$BOARD_OUT" = "$3"$'\n' ]; then
    passed=$((passed + 1)); echo "ok   $1"
  else
    failed=$((failed + 1)); printf 'FAIL %s: expected\n%s\ngot\n%s' "$1" "$3" "$BOARD_OUT"
  fi
}
manager="org.tessaly.ap.AudioVisual /org/tessaly/ap/AudioVisual/Manager org.tessaly.ap.AudioVisual.Manager"
ring='for c in red green blue; do cd /sys/class/leds/ring:$c:status &&
  echo $c $(grep -o "\[pattern\]" trigger) $(cat repeat) $(cat pattern); done'
avd_up='timeout 30 bash -c "until busctl status org.tessaly.ap.AudioVisual &>/dev/null; do sleep 0.5; done"'

board_run "systemctl is-system-running --wait" 120
check "avd active, its name owned by avd" "$avd_up; systemctl is-active avd;
  busctl call org.freedesktop.DBus /org/freedesktop/DBus org.freedesktop.DBus \
    GetConnectionUnixUser s org.tessaly.ap.AudioVisual | { read -r _ uid; id -nu \$uid; }" \
  $'active\navd'
state0=$'red [pattern] -1 0 1500 1 1500\ngreen [pattern] -1 0 1500 1 1500\nblue [pattern] -1 0 1500 1 1500'
check "ring in the start-up state" "$ring" "$state0"
check "an operation from group ap" "runuser -u apcaller -- busctl call $manager SetOperationInProgress u 0; $ring" \
  $'u 1\nred [pattern] -1 0 400 1 400\ngreen [pattern] 1 0 1 0 1\nblue [pattern] -1 0 400 1 400'
check "a caller outside ap refused" "runuser -u stranger -- busctl call $manager SetOperationInProgress u 0 2>&1" \
  "Call failed: Access denied"

board_run "arecord -q -D hw:Loopback,1,0 -f S16_LE -r 48000 -c 1 -d 3 /tmp/capture.wav & sleep 1"
board_run press
check "a press plays the click on the card" "wait; hex() { od -An -v -tx1 \$1 | tr -d ' \n'; echo; }
  hex /tmp/capture.wav | grep -qF \$(hex /usr/share/sounds/ap/touch_feedback.raw) && echo captured" captured

check "kill -9: restarted, ring back" "kill -9 \$(systemctl show -p MainPID --value avd); sleep 2; $avd_up;
  systemctl is-active avd; $ring" $'active\n'"$state0"
check "SIGHUP leaves the daemon" "systemctl kill -s HUP avd; sleep 3; $avd_up; systemctl is-active avd" active
check "each log line once in the journal" "journalctl -o cat _SYSTEMD_INVOCATION_ID=\$(systemctl show -p InvocationID --value avd) |
  grep -c -e 'ring of 3 LEDs' -e 'Applying lighting configuration'" 2

echo "board: $passed passed, $failed failed"
[ "$failed" -eq 0 ]
