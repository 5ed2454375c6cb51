# The host's side of the virtual board, sourced by scripts/board and the
# board tests: boots the board under qemu-system-arm and talks to its
# agent over the virtio-serial port, a line out and output lines back up
# to "@ STATUS". Every wait has a time-out.
#
#   board_boot IMAGE_DIR   boots; waits for the agent (BOARD_BOOT_TIMEOUT s)
#   board_run CMD [SECS]   runs CMD on the board: output in BOARD_OUT,
#                          returns its status (124 on a time-out)
#   board_key KEY          what the view's KEY does (b, o, w, s, h), by
#                          board_run: the board tests press the same keys
#   board_off              powers the board off and removes what it made

BOARD_BOOT_TIMEOUT=${BOARD_BOOT_TIMEOUT:-120}

board_boot() {
  local image=$1
  BOARD_DIR=$(mktemp -d "${TMPDIR:-/tmp}/board.XXXXXX")
  mkfifo "$BOARD_DIR/agent.in" "$BOARD_DIR/agent.out"
  # No KVM for an ARM guest here: TCG, one thread per CPU.
  qemu-system-arm -M virt -m 1024 -smp 2 -nic none -display none \
    -kernel "$image/vmlinuz" -initrd "$image/initrd" -dtb "$image/board.dtb" \
    -append "console=ttyAMA0 rdinit=/sbin/init quiet systemd.show_status=0" \
    -serial "file:$BOARD_DIR/console.log" \
    -device virtio-serial-device \
    -chardev "pipe,id=agent,path=$BOARD_DIR/agent" \
    -device virtserialport,chardev=agent,name=board \
    </dev/null >"$BOARD_DIR/qemu.log" 2>&1 &
  BOARD_PID=$! BOARD_LATE=0
  exec {BOARD_TO}<>"$BOARD_DIR/agent.in" {BOARD_FROM}<>"$BOARD_DIR/agent.out"
  board_run true "$BOARD_BOOT_TIMEOUT"
}

board_run() {
  local command=$1 seconds=${2:-30} line deadline
  BOARD_OUT=""
  kill -0 "$BOARD_PID" 2>/dev/null || return 125
  # One line per command: the agent's shell (bash) reads it back quoted.
  [[ $command == *$'\n'* ]] && printf -v command 'eval %q' "$command"
  printf '%s\n' "$command" >&"$BOARD_TO"
  deadline=$((SECONDS + seconds))
  while [ "$SECONDS" -lt "$deadline" ]; do
    IFS= read -r -t "$((deadline - SECONDS))" line <&"$BOARD_FROM" || break
    line=${line%$'\r'}
    if [[ $line =~ ^@\ ([0-9]+)$ ]]; then
      # The answers of commands that timed out come first: skip them.
      if [ "$BOARD_LATE" -gt 0 ]; then
        BOARD_LATE=$((BOARD_LATE - 1)) BOARD_OUT=""
        continue
      fi
      return "${BASH_REMATCH[1]}"
    fi
    BOARD_OUT+="$line"$'\n'
  done
  BOARD_LATE=$((BOARD_LATE + 1))
  return 124
}

BOARD_MANAGER="org.tessaly.ap.AudioVisual /org/tessaly/ap/AudioVisual/Manager org.tessaly.ap.AudioVisual.Manager"

# b the button, o an operation from a caller in group ap, w the WAN
# online or offline, s setup done or not (the controller's flag), h a hand
# waved over the proximity sensor (200 ms between its two thresholds).
board_key() {
  case $1 in
    b) board_run press ;;
    o) board_run "runuser -u apcaller -- busctl call $BOARD_MANAGER SetOperationInProgress u 0 2>&1" ;;
    w) board_run "systemctl kill -s USR1 board-peer@connection-manager" ;;
    s) board_run "systemctl kill -s USR1 board-peer@controller" ;;
    h) board_run "hand 200" ;;
    *) return 2 ;;
  esac
}

board_off() {
  [ -n "${BOARD_PID:-}" ] || return 0
  # A clean power-off when the agent answers, else the power cord.
  printf 'systemctl poweroff\n' >&"$BOARD_TO" 2>/dev/null || true
  local i
  for ((i = 0; i < 100; i++)); do
    kill -0 "$BOARD_PID" 2>/dev/null || break
    sleep 0.1
  done
  kill -9 "$BOARD_PID" 2>/dev/null || true
  wait "$BOARD_PID" 2>/dev/null || true
  exec {BOARD_TO}>&- {BOARD_FROM}<&-
  rm -rf "$BOARD_DIR"
  BOARD_PID=""
}
