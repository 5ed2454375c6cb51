#!/bin/sh
# `cmake --install` of build directory $1 into a temporary DESTDIR gives a
# device what it needs and nothing it has of its own (the stand-in
# libraries), the systemd unit passes `systemd-analyze verify` there, the
# manual pages format without a warning, and avd and avctl report the project's
# version (the builds' own: the installed daemon lacks the stand-ins).
set -eu
build=$1
dest=$(mktemp -d)
trap 'rm -rf "$dest"' EXIT

prefix=$(sed -n 's/^CMAKE_INSTALL_PREFIX:PATH=//p' "$build/CMakeCache.txt")
# Another prefix at install time would leave the unit starting a daemon
# under the configured one: refused, saying how, with nothing copied.
if refusal=$(cmake --install "$build" --prefix "$dest/elsewhere" 2>&1); then
  echo "installed under a prefix it was not configured for"; exit 1
fi
echo "$refusal" | grep -q -- "-DCMAKE_INSTALL_PREFIX=$dest/elsewhere" ||
  { echo "the refusal does not say how: $refusal"; exit 1; }
[ ! -e "$dest/elsewhere" ] || { echo "copied files before refusing"; exit 1; }
DESTDIR=$dest cmake --install "$build" >/dev/null
DESTDIR=$dest cmake --install "$build" --prefix "$prefix/" >/dev/null
for file in sbin/avd bin/avctl \
            share/dbus-1/system.d/org.tessaly.ap.AudioVisual.conf \
            share/dbus-1/interfaces/org.tessaly.ap.AudioVisual.Manager.xml \
            share/dbus-1/interfaces/org.tessaly.ap.AudioVisual.Status.xml \
            share/dbus-1/system-services/org.tessaly.ap.AudioVisual.service \
            share/man/man8/avd.8 share/man/man1/avctl.1 \
            lib/systemd/system/avd.service \
            lib/sysusers.d/avd.conf \
            lib/udev/rules.d/60-avd.rules; do
  [ -f "$dest$prefix/$file" ] || { echo "not installed: $prefix/$file"; exit 1; }
done
find "$dest" -path '*/etc/init/avd.conf' | grep -q . ||
  { echo "not installed: the Upstart job"; exit 1; }
if find "$dest" -name 'lib*.so*' | grep -q .; then
  echo "installed libraries a device has of its own:"
  find "$dest" -name 'lib*.so*'
  exit 1
fi
grep -q "^ExecStart=$prefix/sbin/avd\$" "$dest$prefix/lib/systemd/system/avd.service"
systemd-analyze verify --root="$dest" --recursive-errors=no \
  "$dest$prefix/lib/systemd/system/avd.service"
grep -qx "SystemdService=avd.service" \
  "$dest$prefix/share/dbus-1/system-services/org.tessaly.ap.AudioVisual.service"
for page in man8/avd.8 man1/avctl.1; do
  warnings=$(groff -man -Tutf8 -ww -z "$dest$prefix/share/man/$page" 2>&1)
  [ -z "$warnings" ] || { echo "$page: $warnings"; exit 1; }
done
version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$build/CMakeCache.txt")
[ "$("$build/av/avd" --version)" = "avd $version" ] ||
  { echo "avd --version does not say $version"; exit 1; }
[ "$("$build/avctl/avctl" --version)" = "avctl $version" ] ||
  { echo "avctl --version does not say $version"; exit 1; }
