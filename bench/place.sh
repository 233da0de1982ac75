#!/bin/bash
# bench/place.sh PROGRAM [ARGUMENT]...: runs a program in a private place: its own user, home, host
# name, temporary directories, and, where bubblewrap can do it, its own network and processes. The
# place is deleted at the end, with everything in it and everybody who runs there.
tree=$(realpath "$(dirname "$0")/..") # which may lie below /tmp
place=$(realpath "$(mktemp -d "${TMPDIR:-/var/tmp}/kelvo-benchXXXX")") || exit 1
trap 'kill "$child" 2>/dev/null; wait "$child"' INT TERM HUP
trap 'rm -rf "$place"' EXIT
mkdir "$place/home" "$place/jobs" "$place/tmp"
printf 'bench:x:%s:%s:bench:%s/home:/bin/sh\n' "$(id -u)" "$(id -g)" "$place" >"$place/passwd"
printf '127.0.0.1 benchhost localhost\n' >"$place/hosts"

unset JOB_LOG_FILE
export KELVO_BENCH_PLACE="$place" TMPDIR="$place/jobs" HOME="$place/home" USER=bench
private() {
    exec bwrap --die-with-parent --unshare-net --unshare-pid --unshare-uts --hostname benchhost \
        --ro-bind / / --dev-bind /dev /dev --proc /proc \
        --ro-bind "$place/passwd" /etc/passwd --ro-bind "$place/hosts" /etc/hosts \
        --bind "$place/tmp" /tmp --ro-bind "$tree" "$tree" --bind "$place" "$place" "$@"
}
# Without a network of its own a program can meet a server that is not its own.
shared() {
    if (exec 9<>/dev/tcp/127.0.0.1/7160) 2>/dev/null; then
        echo "bench/place.sh: port 7160 is in use, and bubblewrap cannot make a private network" >&2
        exit 1
    fi
    exec env LD_PRELOAD=libnss_wrapper.so NSS_WRAPPER_PASSWD="$place/passwd" \
        NSS_WRAPPER_GROUP=/etc/group NSS_WRAPPER_HOSTS="$place/hosts" \
        NSS_WRAPPER_HOSTNAME=benchhost "$@"
}

if (private true) 2>/dev/null; then private "$@" & else shared "$@" & fi
child=$!
wait "$child"
