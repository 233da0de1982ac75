#!/bin/sh
# sandbox.sh SOURCES BUILD PROGRAM [ARGUMENT]...: runs a test program in a private place, which is
# deleted at the end, whatever becomes of the program. Called by main.cpp; see Sandbox.h.
# KELVO_TEST_SECONDS: how long it may run. KELVO_TEST_NO_BWRAP: do not use bubblewrap.
sources=$1 build=$2
shift 2
place=$(realpath "$(mktemp -d "${TMPDIR:-/tmp}/kelvo-testXXXXXX")") || exit 1
child=
trap 'kill $child 2>/dev/null; wait $child; exit 1' INT TERM HUP
trap 'chmod -R u+rwX "$place"; rm -rf "$place"' EXIT
mkdir "$place/tmp" "$place/var-tmp"

unset JOB_LOG_FILE JOB_PEERS
unset XDG_CONFIG_HOME XDG_DATA_HOME XDG_STATE_HOME XDG_CACHE_HOME XDG_RUNTIME_DIR
export KELVO_SANDBOX="$place"
wrapped() {
    # Two of these let AddressSanitizer work although it is not loaded first.
    exec env NSS_WRAPPER_PASSWD="$place/passwd" NSS_WRAPPER_GROUP="$place/group" \
        NSS_WRAPPER_HOSTS="$place/hosts" NSS_WRAPPER_DISABLE_DEEPBIND=1 \
        ASAN_OPTIONS="verify_asan_link_order=0:$ASAN_OPTIONS" \
        LD_PRELOAD="libnss_wrapper.so${LD_PRELOAD:+:$LD_PRELOAD}" \
        ${KELVO_TEST_SECONDS:+timeout -k 5 "$KELVO_TEST_SECONDS"} "$@"
}
# A network, process ids and temporary directories of its own, the rest of the machine read-only.
# Without privileges, so that root meets the same refusals as everybody else; but root may still
# become another user, whom a server has to refuse.
private() {
    if [ "$(id -u)" = 0 ]; then set -- --cap-add CAP_SETUID --cap-add CAP_SETGID "$@"; fi
    wrapped bwrap --die-with-parent --unshare-net --unshare-pid --cap-drop ALL \
        --ro-bind / / --dev-bind /dev /dev --proc /proc \
        --bind "$place/tmp" /tmp --bind "$place/var-tmp" /var/tmp \
        --ro-bind "$sources" "$sources" --bind "$build" "$build" --bind "$place" "$place" \
        --size 1048576 --tmpfs "$place/small-disk" \
        --setenv KELVO_SANDBOX_PRIVATE 1 "$@"
}
shared() {
    if [ "$(id -u)" = 0 ]; then set -- setpriv --bounding-set=-all,+setuid,+setgid "$@"; fi
    wrapped "$@"
}

if [ -z "$KELVO_TEST_NO_BWRAP" ] && (private true) 2>/dev/null; then
    private "$@" &
else
    { exec 9</tmp && flock 9; } || exit 1 # they share the machine's ports: one run at a time
    shared "$@" 9<&- &
fi
child=$!
wait "$child"
status=$?
[ $status != 124 ] || echo "The tests have not ended after $KELVO_TEST_SECONDS seconds." >&2
exit $status
