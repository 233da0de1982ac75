#include "jobs/ScriptShell.h"

const char* const SCRIPT_LIBRARY =
    R"sh(zj_say() { printf 'zojob: %s\n' "$1" >&2; }

# LETTER VALUE: a soft limit, or as much of it as is allowed here.
zj_limit() { ulimit -S "-$1" "$2" 2>/dev/null || ulimit -S "-$1" "$(ulimit -H "-$1")" 2>/dev/null; }

# ENTRY: exports it; fails for a name that some shell keeps for itself, or cannot have.
zj_export() {
    case ${1%%=*} in
    *[!A-Za-z0-9_]* | [0-9]* | zj_* | IFS | PPID | UID | EUID | GROUPS | OPTIND | LINENO) return 1 ;;
    FUNCNAME | RANDOM | SECONDS | DIRSTACK | PIPESTATUS | SHELLOPTS | BASH*) return 1 ;;
    esac
    export "$1" 2>/dev/null
}

# NUMBER ENTRY... WORD...: replaces the shell with the words, in an environment of so many entries.
# Only those that a shell cannot export are words of a process, which all users can see.
zj_exec() {
    zj_count=$1
    shift
    zj_all=$#
    for zj_entry do
        [ "$zj_count" -gt 0 ] && zj_export "$zj_entry" || set -- "$@" "$zj_entry"
        zj_count=$((zj_count - 1))
    done
    shift "$zj_all"
    exec "$zj_env_path" -u OLDPWD -u SHLVL -u _ -- "$@"
}

# NUMBER DIRECTORY KIND: sets zj_why unless that job has ended, and with 0 where KIND is "ok".
zj_after() {
    zj_s=''
    if [ ! -d "$2" ] && [ -s "$zj_d/after-$1" ]; then
        read -r zj_s zj_word <"$zj_d/after-$1"
    elif [ ! -d "$2" ]; then
        zj_why="job $1 has been removed"
        return
    elif [ -s "$2/cluster/end" ]; then
        read -r zj_s zj_word <"$2/cluster/end"
    elif [ -s "$2/cluster/id" ] && [ ! -e "$2/cluster/tasks/job" ]; then
        zj_why="job $1 has not ended on the cluster"
        return
    elif [ -s "$2/exit" ]; then
        read -r zj_s zj_word <"$2/exit"
    elif [ -e "$2/log" ]; then
        zj_s=143 # killed, with all that could have told
    else
        zj_why="job $1 has not run"
        return
    fi
    [ "$3" = any ] || [ "$zj_s" = 0 ] || zj_why="job $1 ended with $zj_s"
}

# SIGNAL: to all that the command has left behind, also in sessions of its own. That has become the
# job child's, which is the parent of our parent. A server that the job has needed, and a process
# that keeps a promise to run other jobs, belong to the queue.
zj_sweep() {
    [ -n "$zj_child" ] || return
    for zj_pid in $(ps xo pid= -o ppid= -o args= |
        awk -v top="$zj_child" -v own="$PPID" '
        { parent[$1] = $2 }
        / -jobserver [0-9]+$/ || / zojob --root .* keep( --host|$)/ { top_of_others[$1] }
        END {
            for (p in parent) {
                n = 0
                for (q = p; (q in parent) && q != top && q != own && n < 1000; ++n)
                    q = q in top_of_others ? own : parent[q]
                if (q == top && p != top) print p
            }
        }'); do
        kill -s "$1" "$zj_pid" 2>/dev/null
    done
}

# ENTRY...: runs the command once and sets zj_status.
zj_try() {
    zj_begin=$(date +%s) zj_status=143
    [ -z "$zj_killed" ] || return
    (zj_limits; umask "$zj_mask"; zj_command "$@")
    zj_status=$?
    case $zj_status in 124 | 137) ;; *) return ;; esac
    [ -n "$zj_time" ] && [ $(($(date +%s) - zj_begin)) -ge "${zj_time%.*}" ] || return
    [ -z "$zj_killed" ] || return
    zj_status=124 zj_outcome=timeout
    zj_say "its time, $zj_time s, was over"
    zj_sweep TERM
    sleep 1
    zj_sweep KILL
}

# Waits until a kill is over: what begins before the job child has gone is taken for the job's.
zj_settle() {
    zj_i=0
    while [ -n "$zj_child" ] && kill -0 "$zj_child" 2>/dev/null && [ "$zj_i" -lt 10 ]; do
        sleep 0.5
        zj_i=$((zj_i + 1))
    done
}

zj_has_done() { [ -f "$zj_done" ] && [ -x "$zj_done" ]; }

# Sets zj_disk to "full" when nothing can be written any more for want of room.
zj_look() {
    zj_disk=-
    case $({ head -c 8192 /dev/zero >"$zj_d/.room"; } 2>&1) in
    *space* | *quota*) zj_disk=full ;;
    esac
    rm -f "$zj_d/.room" 2>/dev/null
}

# STATUS OUTCOME DISK TIME CHILD DIRECTORY: writes down how the job ended, as soon as that can be
# done. Its arguments tell it to whoever looks meanwhile. Of a killed job nobody waits for it.
zj_keep='while read -r pid name state rest <"/proc/$5/stat" && [ "$state" != Z ] && [ -e "$6/job" ]; do
    { printf "%-23s\n" "$1 $2 $3" 1<>"$6/.exit" && touch -d "@$4" "$6/.exit" &&
        mv -f "$6/.exit" "$6/exit"; } 2>/dev/null && break
    sleep 1
done 2>/dev/null
exit "$1"'

# STATUS OUTCOME ENTRY...: the end of the job. What is told then to others may take its time, and
# fail; no signal for the job shall end it.
zj_end() {
    zj_status=$1 zj_outcome=${2:--} zj_ended=$(date +%s) zj_kept=''
    shift 2
    trap '' TERM INT HUP
    zj_look
    # The place on the disk was taken at the start: the log may have filled it since.
    { printf '%-23s\n' "$zj_status $zj_outcome $zj_disk" 1<>"$zj_d/.exit" &&
        mv -f "$zj_d/.exit" "$zj_d/exit"; } 2>/dev/null || zj_kept=1
    if [ "$zj_outcome" != cancelled ] && { [ -n "$zj_then" ] || zj_has_done; }; then
        [ -z "$zj_killed" ] || zj_settle
        [ -z "$zj_then" ] || zj_tell --then "$zj_then" '' "$@"
        ! zj_has_done || zj_tell "$zj_done" 'exec "$1"' "$zj_done" "$@"
    fi
    if [ -n "$zj_kept" ]; then
        trap - TERM INT HUP
        exec sh -c "$zj_keep" zojob-end "$zj_status" "$zj_outcome" "$zj_disk" "$zj_ended" \
            "$zj_child" "$zj_d"
    fi
    exit "$zj_status"
}

# NAME LINE WORD ENTRY...: runs the line of shell with the job's environment and what became of it.
zj_tell() {
    zj_what=$1 zj_line=$2 zj_word=$3
    shift 3
    (
        trap - TERM INT HUP
        umask "$zj_mask"
        cd "$zj_dir" 2>/dev/null
        zj_exec $# "$@" ZOJOB_ID="$zj_n" ZOJOB_NAME="$zj_name" ZOJOB_LABEL="$zj_label" \
            ZOJOB_STATUS="$zj_status" ZOJOB_LOG="$zj_d/log" /bin/sh -c "$zj_line" sh "$zj_word"
    ) || zj_say "$zj_what ended with $?"
}
)sh";

const char* const SCRIPT_MAIN = R"sh(zj_killed='' zj_outcome='' zj_why='' zj_child='' zj_n_try=0
# The job's own PATH is not for us.
zj_env_path=$(command -v env) zj_nice_path=$(command -v nice) zj_timeout_path=$(command -v timeout)
{ printf '%-23s\n' -1 >"$zj_d/.exit"; } 2>/dev/null
read -r zj_pid zj_word zj_word zj_child zj_word 2>/dev/null <"/proc/$PPID/stat"
trap zj_killed=1 TERM INT HUP
if [ -e "$zj_d/cancel" ]; then
    zj_say "cancelled before it ran; 'zojob again $zj_n' submits it anew"
    zj_end 143 cancelled "$@"
fi
zj_conditions
if [ -n "$zj_why" ]; then
    zj_say "skipped, since $zj_why; 'zojob again $zj_n' submits it anew, without that condition"
    zj_end 126 skipped "$@"
fi
if ! cd "$zj_dir"; then
    zj_say "cannot enter $zj_dir: the command was not run"
    zj_end 125 '' "$@"
fi
while :; do
    zj_outcome=''
    zj_try "$@"
    [ "$zj_status" != 0 ] && [ -z "$zj_killed" ] && [ "$zj_n_try" -lt "$zj_retry" ] || break
    zj_n_try=$((zj_n_try + 1))
    zj_say "ended with $zj_status; again, $zj_n_try of $zj_retry"
    sleep 1
done
[ -z "$zj_killed" ] || zj_end 143 killed "$@"
zj_end "$zj_status" "$zj_outcome" "$@"
)sh";
