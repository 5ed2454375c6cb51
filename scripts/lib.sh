# Sourced by the scripts: named steps that say how far along a long run is,
# and package installs that wait for the package manager.

# step TEXT: names the next step of a long run, with the time since the
# script started ("==> 03:12 sanitizer build and tests").
step() {
  printf '==> %02d:%02d %s\n' $((SECONDS / 60)) $((SECONDS % 60)) "$*"
}

# apt_get ARGS...: apt-get as root, waiting up to 15 minutes while another
# install (a fresh machine's automatic upgrade, say) holds the package
# manager's lock, rather than failing at once.
apt_get() {
  local sudo="" err waited=0
  [ "$(id -u)" -eq 0 ] || sudo="sudo"
  err=$(mktemp)
  until DEBIAN_FRONTEND=noninteractive $sudo apt-get -qq "$@" 2>"$err"; do
    if ! grep -q "Could not get lock" "$err" || [ $waited -ge 900 ]; then
      cat "$err" >&2; rm -f "$err"; return 1
    fi
    [ $waited -gt 0 ] ||
      echo "packages: waiting for the package manager, which another install holds ($(grep -o 'held by process.*' "$err" | head -1)); up to 15 min"
    sleep 5; waited=$((waited + 5))
  done
  rm -f "$err"
}

# apt_install PACKAGE...: installs those of Debian's packages not yet
# installed; quiet when there is nothing to do.
apt_install() {
  local missing=() p
  for p; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' ||
      missing+=("$p")
  done
  [ ${#missing[@]} -gt 0 ] || return 0
  echo "packages: installing ${#missing[*]} from Debian (about $(( ${#missing[*]} / 10 + 1 )) min with their dependencies): ${missing[*]}"
  apt_get update
  apt_get install -y --no-install-recommends "${missing[@]}" >/dev/null
}

# ninja_with_progress DIR TARGET...: builds; when there is work, says how
# much, with an estimate from this machine's cores, and shows ninja's
# progress. Quiet when everything is up to date. Niced, so that a
# terminal stays responsive beside it.
ninja_with_progress() {
  local dir=$1 steps
  shift
  steps=$(ninja -C "$dir" -n "$@" | sed -n 's/^\[[0-9]*\/\([0-9]*\)\].*/\1/p' | tail -1)
  [ -n "$steps" ] || return 0
  echo "build: $steps steps in ${dir##*/}/ (about $(( steps * 2 / $(nproc) / 60 + 1 )) min on $(nproc) cores the first time)"
  # In a terminal ninja keeps its progress on one line; elsewhere it
  # writes a line a step.
  if [ -t 1 ]; then
    nice -n 10 ninja -C "$dir" "$@"
  else
    nice -n 10 ninja -C "$dir" "$@" | grep --line-buffered -v '^ninja: \(Entering\|Leaving\) directory'
  fi
}
