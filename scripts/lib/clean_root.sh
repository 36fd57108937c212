# shellcheck shell=bash
#
# Functions for scripts that try things in a clean Debian system in a folder; to be sourced, with the
# project's root as the current folder. They need to be root.
#
# Nothing is mounted where the machine sees it. Each command has mount and process namespaces of its
# own, which end with it, and with this script however that ends; with them go the mounts, and whatever
# the command left running.

apartProcess=''

# Runs a command in namespaces of its own: apart COMMAND...
apart() {
  local status=0
  setpriv --pdeathsig KILL unshare --mount --propagation private --pid --fork --kill-child "$@" <&0 &
  apartProcess=$!
  wait "$apartProcess" || status=$?
  apartProcess=''
  return "$status"
}

# Ends the command that runs apart, so that the folder of its system can be removed.
endApart() {
  [[ -n $apartProcess ]] || return 0
  local first
  first=$(cat "/proc/$apartProcess/task/$apartProcess/children" 2>/dev/null) || true
  # The end of the first process is the end of the namespace, which unshare waits for.
  kill -KILL "${first% }" 2>/dev/null || kill -KILL "$apartProcess" 2>/dev/null || true
  wait "$apartProcess" 2>/dev/null || true
}

# Makes a minimal system: makeRoot SUITE FOLDER
makeRoot() {
  apart debootstrap --variant=minbase "$1" "$2" >"$2.log" 2>&1 || { tail -n 20 "$2.log" >&2; return 1; }
  rm "$2.log"
  # Nobody needs this system after a crash of the machine.
  echo force-unsafe-io >"$2/etc/dpkg/dpkg.cfg.d/unsafe-io"
}

# Runs a command in the system in a folder: inRoot FOLDER COMMAND [ARGUMENT...]
inRoot() { apart scripts/lib/enter_root.sh "$@"; }

# Whether a file is a recording of about so many seconds: holdsRecording FILE SECONDS
holdsRecording() { [[ $(stat --format %s "$1") -gt $((150000 * $2)) ]]; }

# Installs the package in a minimal system without a sound server, and records there, with virtual
# devices and from a console: tryPackage FOLDER PACKAGE
tryPackage() {
  local root=$1
  cp "$2" "$root/package.deb" &&
    inRoot "$root" apt-get update --quiet=2 &&
    inRoot "$root" env DEBIAN_FRONTEND=noninteractive \
      apt-get install --yes --quiet=2 --no-install-recommends /package.deb >/dev/null &&
    inRoot "$root" quenlor-record --version &&
    inRoot "$root" quenlor-record --seconds 1 --sidecar /usr/bin/QuenlorHelperAudioVirtual \
      /recording.wav &&
    holdsRecording "$root/recording.wav" 1 &&
    reportsNoServer "$root"
}

# The program for sound servers must say that there is none, so its libraries are there.
reportsNoServer() {
  if inRoot "$1" quenlor-record --seconds 1 /none.wav 2>"$1/errors"; then return 1; fi
  cat "$1/errors"
  grep --quiet "The sound server could not be reached" "$1/errors"
}
