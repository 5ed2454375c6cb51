#!/usr/bin/env bash
# Usage: bench/board_figures.sh [BOOTS]   (after scripts/board has built)
# The virtual board's figures, median of BOOTS boots (default 3): kernel
# start to the ring's first LED write, boot to avd owning its name, avd's
# VmRSS, RssAnon and Pss, and its wake-ups in an idle minute.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
source "$top/board/board.sh"
boots=${1:-3}
trap board_off EXIT
trap "exit 130" INT TERM

# Monotonic seconds (since the kernel started) of a journal line.
at='journalctl -o short-monotonic -q -b'
measure='pid=$(systemctl show -p MainPID --value avd)
  first() { '"$at"' -u avd | grep -m1 "$1" | tr -d "[]" | { read -r s _; echo $s; }; }
  echo led $(first "ring of 3 LEDs")
  echo owned $(first "Started avd")
  grep -E "^(VmRSS|RssAnon)" /proc/$pid/status | tr -d ":"
  grep "^Pss:" /proc/$pid/smaps_rollup | tr -d ":"
  switches() { grep ctxt_switches /proc/$pid/status | mawk "{ s += \$2 } END { print s }"; }
  before=$(switches); sleep 60; echo wakeups $(($(switches) - before))'

declare -A all
for ((i = 0; i < boots; i++)); do
  board_boot "$top/build-armhf/board-image"
  board_run "systemctl is-system-running --wait" 180 || true
  board_run "$measure" 120
  echo "$BOARD_OUT" >&2
  while read -r key value _; do [ -n "$key" ] && all[$key]+="$value "; done <<<"$BOARD_OUT"
  board_off
done
median() { tr ' ' '\n' | grep . | sort -g | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }
for key in led owned VmRSS RssAnon Pss wakeups; do
  echo "$key: $(median <<<"${all[$key]}") (of: ${all[$key]})"
done
