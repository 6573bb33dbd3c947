#!/usr/bin/env bash
# in_clean_root.sh [--with FOLDER] COMMAND...: runs COMMAND over a copy of what git tracks (and of a
# folder that it does not), in a throw-away Debian 12 with the smallest set of packages, so that what a
# fresh machine lacks is missed here too. Where such a root cannot be made, says so in one line and runs
# COMMAND in place. In the root FERRY_CLEAN_ROOT is set: what is done to the system there harms nobody.
set -euo pipefail
umask 022 # tests become somebody else, and have to reach the programs then
cd "$(dirname "$0")/.."
with=()
if [[ ${1:-} == --with && $# -gt 1 ]]; then
  with=("$2")
  shift 2
fi
command=("$@")

suite=bookworm
place=/srv/ferry # the same in every run, so that ccache finds again what it kept
caches=${XDG_CACHE_HOME:-${HOME:-/root}/.cache}
kept=$caches/ferry-clean-root
run='' # the folder of this run, with the root in it

# In MiB: what a run fills, and what the kept tree takes besides.
room_to_run=4000 room_to_keep=500

# Mounts and processes go with their namespaces; the copy is removed when nothing lives in it any more.
finish() {
  local pid first
  trap '' HUP INT TERM
  for pid in $(jobs -p); do
    first=$(cat "/proc/$pid/task/$pid/children" || true) # its end is that of all others inside
    kill -KILL "${first:-$pid}" && wait "$pid"
  done 2>/dev/null || true
  [[ -z $run ]] || rm -rf --one-file-system "$run"
}
trap finish EXIT
trap 'exit 129' HUP
trap 'exit 130' INT
trap 'exit 143' TERM

in_place() {
  echo "No clean root, running in place: $1" >&2
  finish
  trap - HUP INT TERM
  exec "${command[@]}" 9<&-
}

# Runs a command in namespaces of its own. It is waited for in the background, since a shell takes no
# signal while a command runs in front.
apart() {
  unshare --mount --pid --fork --kill-child --mount-proc --propagation private "$@" </dev/null &
  wait $!
}

logged() { "$@" >>"$run/log" 2>&1; }
last_words() { tail -n 1 "$run/log"; }

free_mib() { df --output=avail -BM "$kept" | tr -dc '0-9\n' | tail -n 1; }
may_keep() { (($(free_mib) >= room_to_run + room_to_keep)); }

# A folder that is locked while its run lasts. What a killed run left behind is removed.
begin_run() {
  mkdir -p "$kept" 2>/dev/null &&
    find "$kept" -maxdepth 1 -name 'run.*' -mmin +1 -exec flock -n {} rm -rf --one-file-system {} \; &&
    run=$(mktemp -d "$kept/run.XXXXXX") &&
    exec 9<"$run" && flock 9
}

tracked_files() { git -c safe.directory="$PWD" ls-files -z; }
files_to_copy() {
  tracked_files
  [[ ${#with[@]} -eq 0 ]] || printf '%s\0' "${with[@]}"
}

# This machine's own mirrors of Debian 12, as lines of sources.list.
debian_sources() {
  apt-get indextargets --format 'deb $(REPO_URI) $(RELEASE) $(COMPONENT) $(CODENAME)' \
    'Created-By: Packages' 'Origin: Debian' 'Component: main' |
    awk -v suite="$suite" '$2 ~ /^https?:/ && $5 ~ "^" suite "(-updates|-security)?$" {
      print $1, $2, $3, $4 }' | sort -u
}
mirror() { awk -v suite="$suite" '$3 == suite { print $2; exit }' "$run/sources"; }

# apt knows whose a mirror is once it has its lists; a fresh machine has none.
find_sources() {
  debian_sources >"$run/sources"
  [[ -n $(mirror) ]] || { logged apt-get update && debian_sources >"$run/sources"; }
  [[ -n $(mirror) ]]
}

install_debootstrap() {
  [[ -d $kept/base ]] || command -v debootstrap >/dev/null || {
    logged apt-get update &&
      DEBIAN_FRONTEND=noninteractive logged apt-get install -y --no-install-recommends debootstrap
  }
}

# The tree is kept as debootstrap leaves it and is never run in: what one run installs must not be
# there for the next.
make_root() {
  if [[ -d $kept/base ]]; then
    logged cp -a "$kept/base" "$run/root"
    return
  fi
  logged apart debootstrap --variant=minbase "$suite" "$run/root" "$(mirror)" || return
  may_keep || { echo "Too little room to keep the clean root for the next run" >&2 && return; }
  # Where two runs are the first, one of them comes too late; that does no harm.
  logged cp -a "$run/root" "$run/base" && { logged mv -T "$run/base" "$kept/base" || true; }
}

# What apt needs to reach the mirror as this machine does.
let_apt_reach_out() {
  local root=$run/root file
  cp "$run/sources" "$root/etc/apt/sources.list"
  apt-config dump | grep -E '^Acquire::(https?|Check|Force|Retries|Languages)' |
    grep -v Auto-Detect >"$root/etc/apt/apt.conf.d/90machine" || true
  for file in /etc/resolv.conf /etc/hosts /etc/ssl/certs/ca-certificates.crt; do
    [[ ! -e $file ]] || { mkdir -p "$root${file%/*}" && cp -L "$file" "$root$file"; }
  done
}

# What is thrown away need not survive a power cut: without the flushes dpkg takes a third of the time.
let_dpkg_hurry() { echo force-unsafe-io >"$run/root/etc/dpkg/dpkg.cfg.d/throw-away"; }

copy_project() {
  mkdir -p "$run/root$place"
  files_to_copy | tar -c --null -T - --owner=0 --group=0 --mode=a+rX,go-w |
    tar -x -C "$run/root$place"
}

share_ccache() {
  ccache=$(ccache -k cache_dir 2>/dev/null || echo "${CCACHE_DIR:-$caches/ccache}")
  ccache_size=$(ccache -k max_size 2>/dev/null || true)
  mkdir -p "$ccache" "$run/root/var/cache/ccache"
}

# The environment of the root: nothing of this machine's but how it reaches the net.
environment() {
  echo "HOME=/root"
  echo "PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"
  echo "DEBIAN_FRONTEND=noninteractive"
  echo "FERRY_CLEAN_ROOT=yes"
  echo "CCACHE_DIR=/var/cache/ccache"
  [[ -z $ccache_size ]] || echo "CCACHE_MAXSIZE=$ccache_size"
  env | grep -iE '^(https?|ftp|no)_proxy=' || true
}

# Signals are as a login leaves them, also when our caller or the background had them ignored. Only the
# first process keeps the lock.
in_root() {
  local variables
  mapfile -t variables < <(environment)
  apart bash -euc '
    root=$1 ccache=$2
    shift 2
    mount --bind "$root" "$root" # / is a mount there as on any machine
    mount -t proc proc "$root/proc"
    mount -t devpts -o newinstance,ptmxmode=0666,mode=0620,gid=5 devpts "$root/dev/pts"
    mount -t tmpfs -o mode=1777 tmpfs "$root/dev/shm"
    mount --bind "$ccache" "$root/var/cache/ccache"
    chroot "$root" /usr/bin/env -i --default-signal "$@" 9<&-
  ' in_root "$run/root" "$ccache" -C "$place" "${variables[@]}" "$@"
}

install_ccache() {
  logged in_root apt-get update && logged in_root apt-get install -y --no-install-recommends ccache
}

make_ready() {
  [[ $(id -u) -eq 0 ]] || in_place "only root can make one"
  command -v apt-get >/dev/null || in_place "there is no apt-get"
  begin_run || in_place "cannot write to $kept"
  tracked_files >/dev/null 2>&1 || in_place "git does not tell what it tracks"
  (($(free_mib) >= room_to_run)) || in_place "less than $room_to_run MiB are free in $kept"
  logged apart mount -t tmpfs tmpfs "$run" || in_place "no namespaces or mounts here ($(last_words))"
  find_sources || in_place "apt's sources name no mirror of Debian 12"
  install_debootstrap || in_place "cannot install debootstrap ($(last_words))"
  make_root || in_place "debootstrap failed ($(last_words))"
  let_apt_reach_out
  let_dpkg_hurry
  copy_project
  share_ccache
  install_ccache || in_place "its apt-get cannot install ccache ($(last_words))"
}

main() {
  [[ $# -gt 0 ]] || { echo "usage: $0 [--with FOLDER] COMMAND..." >&2 && exit 2; }
  make_ready
  echo "In a clean root of Debian 12, $(chroot "$run/root" dpkg-query -W | wc -l) packages:"
  in_root "$@"
}

main "$@"; exit # read as a whole before it runs: a checkout may replace this file meanwhile
