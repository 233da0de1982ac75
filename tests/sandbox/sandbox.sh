#!/bin/sh
# sandbox.sh [OPTION]... BUILD PROGRAM [ARGUMENT]...: runs a program in a private place, as the user
# "tester" of the machine "node1": home, temporary directories and, where bubblewrap can do it, also
# network and process ids are its own, and the rest of the machine is read-only but for the directory
# BUILD. Everything in the place ends with the program and is deleted. Tests, measurements and ordeals
# all run in here; see Sandbox.h.
#   -p  needs bubblewrap: without it nothing is run, and the exit status is 77
#   -i  standard input and Ctrl-C are the program's
# KELVO_TEST_SECONDS: how long it may run. KELVO_TEST_NO_BWRAP: do not use bubblewrap.
needed='' interactive=''
while getopts pi option; do
    case $option in
    p) needed=1 ;;
    i) interactive=1 ;;
    *) exit 2 ;;
    esac
done
shift $((OPTIND - 1))
sources=$(realpath "$(dirname "$0")/../..") build=$1
shift
place=$(realpath "$(mktemp -d "${TMPDIR:-/tmp}/kelvo-testXXXXXX")") || exit 1
child=
trap 'kill $child 2>/dev/null; wait $child; exit 1' INT TERM HUP
trap 'chmod -R u+rwX "$place"; rm -rf "$place"' EXIT
world=$place/world
mkdir -p "$place/tmp" "$place/var-tmp" "$world/home" "$world/tmp"
echo "tester:x:$(id -u):$(id -g)::$world/home:/bin/sh" >"$place/passwd"
echo "tester:x:$(id -g):" >"$place/group"
# Servers listen on IPv4: a client that asks for localhost has to try a second address.
printf '%s\n' '127.0.0.1 node1' '127.0.0.1 localhost' '::1 localhost' >"$place/hosts"

unset JOB_LOG_FILE JOB_PEERS JOB_PORT JOB_SYNC
unset XDG_CONFIG_HOME XDG_DATA_HOME XDG_STATE_HOME XDG_CACHE_HOME XDG_RUNTIME_DIR
export KELVO_SANDBOX="$place" HOME="$world/home" TMPDIR="$world/tmp" USER=tester
limited() {
    # shellcheck disable=SC2086 # two words or none
    exec ${KELVO_TEST_SECONDS:+timeout --foreground -k 5 "$KELVO_TEST_SECONDS"} "$@"
}
# The user's and the machine's names, without a file system of one's own.
renamed() {
    # Two of these let AddressSanitizer work although it is not loaded first.
    limited env NSS_WRAPPER_PASSWD="$place/passwd" NSS_WRAPPER_GROUP="$place/group" \
        NSS_WRAPPER_HOSTS="$place/hosts" NSS_WRAPPER_HOSTNAME=node1 \
        NSS_WRAPPER_DISABLE_DEEPBIND=1 ASAN_OPTIONS="verify_asan_link_order=0:$ASAN_OPTIONS" \
        LD_PRELOAD="libnss_wrapper.so${LD_PRELOAD:+:$LD_PRELOAD}" "$@"
}
# Without privileges, so that root meets the same refusals as everybody else; but root may still
# become another user, whom a server has to refuse.
private() {
    if [ "$(id -u)" = 0 ]; then set -- --cap-add CAP_SETUID --cap-add CAP_SETGID "$@"; fi
    limited bwrap --die-with-parent --unshare-net --unshare-pid --unshare-ipc --unshare-uts \
        --hostname node1 --cap-drop ALL --ro-bind / / --dev-bind /dev /dev --proc /proc \
        --ro-bind "$place/passwd" /etc/passwd --ro-bind "$place/group" /etc/group \
        --ro-bind "$place/hosts" /etc/hosts \
        --bind "$place/tmp" /tmp --bind "$place/var-tmp" /var/tmp \
        --ro-bind "$sources" "$sources" --bind "$build" "$build" --bind "$place" "$place" \
        --size 1048576 --tmpfs "$place/small-disk" --setenv KELVO_SANDBOX_PRIVATE 1 "$@"
}
# shellcheck disable=SC2317 # called by its name, which is in a variable
shared() {
    if [ "$(id -u)" = 0 ]; then set -- setpriv --bounding-set=-all,+setuid,+setgid "$@"; fi
    renamed "$@"
}

run=private
if [ "$KELVO_TEST_NO_BWRAP" ] || ! (private true) 2>/dev/null; then
    run=shared
    if [ "$needed" ]; then
        echo "there is no sandbox (Debian: bubblewrap)" >&2
        exit 77
    fi
    # The machine's ports are shared: one run at a time. Only this shell holds the lock.
    { exec 9</tmp && flock 9; } || exit 1
    if [ "$(renamed id -un)" != tester ]; then
        echo "without bubblewrap this needs libnss-wrapper" >&2
        exit 1
    elif grep -q ':1BF8 0*:0000 0A' /proc/net/tcp /proc/net/tcp6; then
        echo "somebody else's server listens on port 7160: end it, or install bubblewrap" >&2
        exit 1
    fi
fi
if [ "$interactive" ]; then
    trap : INT
    ("$run" "$@" 9<&-)
    status=$?
else
    "$run" "$@" 9<&- &
    child=$!
    wait "$child"
    status=$?
fi
[ $status != 124 ] || echo "The tests have not ended after $KELVO_TEST_SECONDS seconds." >&2
exit $status
