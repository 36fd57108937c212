#!/usr/bin/env bash
#
# Mounts what programs expect of a system into the one in a folder, and runs a command in it; started
# by clean_root.sh, whose namespaces take the mounts away.
#
#   scripts/lib/enter_root.sh FOLDER COMMAND [ARGUMENT...]
set -euo pipefail

# The first process of a namespace; elsewhere the mounts would stay.
[[ $$ -eq 1 ]] || { echo "enter_root.sh: only for clean_root.sh" >&2; exit 64; }
root=$1
shift

mount -t proc proc "$root/proc"
mount -t sysfs -o ro sysfs "$root/sys"
# Nodes of its own in memory: whatever replaces or removes them, the machine keeps its own.
mount -t tmpfs -o mode=755 tmpfs "$root/dev"
while read -r name minor; do
  mknod --mode=666 "$root/dev/$name" c 1 "$minor"
done <<<"null 3
zero 5
full 7
random 8
urandom 9"
mknod --mode=666 "$root/dev/tty" c 5 0
ln -s pts/ptmx "$root/dev/ptmx"
ln -s /proc/self/fd "$root/dev/fd"
ln -s fd/0 "$root/dev/stdin"
ln -s fd/1 "$root/dev/stdout"
ln -s fd/2 "$root/dev/stderr"
mkdir "$root/dev/pts" "$root/dev/shm"
mount -t devpts -o newinstance,gid=5,mode=620,ptmxmode=666 devpts "$root/dev/pts"
mount -t tmpfs -o mode=1777 tmpfs "$root/dev/shm"

# This process stays, to collect the orphans that commands leave.
status=0
chroot "$root" env --ignore-environment HOME=/root LANG=C.UTF-8 TERM=dumb \
  PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin "$@" || status=$?
exit "$status"
