#include "jobs/SlurmShell.h"

const char* const SLURM_LIBRARY =
    R"sh(# What stands here for a job on a Slurm cluster. All names begin with zojob_: the variables of the
# job's environment are around, and a name of theirs would be changed for the cluster too.
zojob_say() { printf 'zojob: %s\n' "$1" >&2; }

# TENTHS: sleeps, but not longer than to a signal.
zojob_sleep() {
    sleep "$(($1 / 10)).$(($1 % 10))" &
    wait $!
    [ -z "$zojob_signal" ] || kill $! 2>/dev/null
}
zojob_grow() {
    zojob_pause=$((zojob_pause + zojob_pause / 2 + 1))
    [ "$zojob_pause" -lt 80 ] || zojob_pause=80
}
# Sleeps for the present pause and makes it longer, or wakes when the command's status has come.
zojob_rest() {
    zojob_left=$zojob_pause
    while [ "$zojob_left" -gt 0 ] && [ -z "$zojob_signal" ]; do
        [ "$zojob_left" -gt 10 ] && zojob_nap=10 || zojob_nap=$zojob_left
        zojob_sleep "$zojob_nap"
        zojob_left=$((zojob_left - zojob_nap))
        if [ -z "$zojob_woken" ] && [ -e "$zojob_c/tasks/job" ]; then
            zojob_woken=1 zojob_pause=1
            return
        fi
    done
    zojob_grow
}

# Runs a program that a SIGTERM to all processes of the job must not end half-way. Where it came
# before the program had begun, the status is 143.
zojob_whole() { (trap '' TERM INT HUP; zojob_clean; exec "$@"); }

# FILE TEXT: writes a file of the job's cluster directory, whole or not at all.
zojob_put() {
    printf '%s\n' "$2" >"$zojob_c/.new.$$" || return
    for zojob_try in 1 2 3; do
        zojob_whole mv -f "$zojob_c/.new.$$" "$zojob_c/$1" && return
    done
}

# Sets zojob_error to what a program has said, on one line; by itself, since a program that read it
# might be ended by a signal.
zojob_error() {
    zojob_error=''
    while read -r zojob_line; do zojob_error="$zojob_error$zojob_line "; done <"$zojob_c/error"
}

# In a shell of its own: leaves out what would make the cluster's programs choose among the jobs, ask
# back or wait.
zojob_clean() {
    unset SBATCH_WAIT SBATCH_EXPORT SQUEUE_ACCOUNT SQUEUE_FEDERATION SQUEUE_LICENSES SQUEUE_LOCAL
    unset SQUEUE_NAMES SQUEUE_PARTITION SQUEUE_QOS SQUEUE_SIBLING SQUEUE_SORT SQUEUE_USERS
    unset SCANCEL_ACCOUNT SCANCEL_BATCH SCANCEL_FULL SCANCEL_HURRY SCANCEL_INTERACTIVE SCANCEL_NAME
    unset SCANCEL_PARTITION SCANCEL_QOS SCANCEL_STATE SCANCEL_USER SCANCEL_WCKEY
}
# OPTION...: what the cluster says, a line a job.
zojob_squeue() (
    zojob_clean
    exec squeue ${zojob_cluster:+-M "$zojob_cluster"} -h -t all "$@" \
        -O 'JobArrayID:|,State:|,exit_code:|,Reason:|,NodeList:|,Command:|'
)
# Asks for the job; fails while the cluster does not answer. A job that it does not know has no line.
zojob_ask() {
    zojob_lines=$(exec 2>"$zojob_c/error"; zojob_squeue -j "$zojob_id") && return
    zojob_error
    case $zojob_error in *'nvalid job id'*) ;; *) return 1 ;; esac
}

# STATE CODE: sets zojob_status, unless that is no end. The code is that of wait(), or "3:0" for a
# status and a signal.
zojob_final() {
    case $1 in
    COMPLETED) zojob_status=0 ;;
    FAILED)
        case $2 in
        '' | *[!0-9:]*) zojob_status=1 ;;
        *:*) zojob_status=$((${2#*:} ? ${2#*:} + 128 : ${2%%:*})) ;;
        *) zojob_status=$(($2 % 128 ? $2 % 128 + 128 : $2 / 256 % 256)) ;;
        esac
        [ "$zojob_status" != 0 ] || zojob_status=1
        [ -e "$zojob_c/start" ] || zojob_status=125 # never begun: the code is the cluster's own
        ;;
    CANCELLED | PREEMPTED | REVOKED) zojob_status=143 ;;
    TIMEOUT | DEADLINE) zojob_status=124 ;;
    OUT_OF_MEMORY) zojob_status=137 ;;
    NODE_FAIL | BOOT_FAIL) zojob_status=125 ;;
    *) return 1 ;;
    esac
}

# TASK STATUS STATE: keeps how a task has ended. The status that the task's own node has written
# counts, except where the cluster ended the command.
zojob_keep() {
    zojob_own='' zojob_word=''
    [ ! -e "$zojob_c/tasks/$1" ] || read -r zojob_own zojob_word <"$zojob_c/tasks/$1"
    [ -z "$zojob_word" ] || return 0
    case $3 in COMPLETED | FAILED) set -- "$1" "${zojob_own:-$2}" "$3" ;; esac
    zojob_put "tasks/$1" "$2 $3"
}

# Reads zojob_lines: keeps what has ended, and sets zojob_text to the state of what has not.
zojob_read() {
    zojob_text='' zojob_running=0
    while IFS='|' read -r zojob_job zojob_state zojob_code zojob_reason zojob_nodes zojob_path; do
        case $zojob_job in
        "$zojob_id") zojob_task=job ;;
        "$zojob_id"_* | "$zojob_id"+*) zojob_task=${zojob_job#"$zojob_id"?} ;;
        *) continue ;;
        esac
        if zojob_final "$zojob_state" "$zojob_code"; then
            zojob_keep "$zojob_task" "$zojob_status" "$zojob_state"
        elif [ "$zojob_state" = PENDING ]; then
            : "${zojob_text:="PENDING ($zojob_reason)"}"
            # The cluster has queued it again.
            zojob_own='' zojob_word=''
            [ ! -e "$zojob_c/tasks/$zojob_task" ] ||
                read -r zojob_own zojob_word <"$zojob_c/tasks/$zojob_task"
            [ -z "$zojob_word" ] || rm -f "$zojob_c/tasks/$zojob_task"
        else
            zojob_text="$zojob_state${zojob_nodes:+ on $zojob_nodes}"
            zojob_running=$((zojob_running + 1))
        fi
    done <<END
$zojob_lines
END
}

# What has ended: how many tasks, the highest status, and the state that goes with it.
zojob_sum() {
    zojob_ended=0 zojob_highest=-1 zojob_word='' zojob_total=0 zojob_range=''
    [ ! -e "$zojob_c/count" ] || read -r zojob_total <"$zojob_c/count"
    for zojob_file in "$zojob_c"/tasks/*; do
        [ -e "$zojob_file" ] && read -r zojob_status zojob_state <"$zojob_file" || continue
        zojob_ended=$((zojob_ended + 1))
        case $zojob_file in *']'*) zojob_range=1 ;; esac
        [ "$zojob_status" -gt "$zojob_highest" ] || continue
        zojob_highest=$zojob_status zojob_word=$zojob_state
    done
}

# Notes what zojob_lines say about the job.
zojob_note() {
    zojob_read
    zojob_sum
    if [ -n "$zojob_text" ]; then
        [ "$zojob_total" = 0 ] ||
            zojob_text="$zojob_text, $zojob_running running, $zojob_ended of $zojob_total ended"
        zojob_put state "$zojob_text"
    elif [ "$zojob_ended" = 0 ] || { [ -z "$zojob_range" ] && [ "$zojob_ended" -lt "$zojob_total" ]; }; then
        [ "$zojob_highest" -gt 125 ] || zojob_highest=125
        zojob_put end "$zojob_highest FORGOTTEN"
    else
        zojob_put end "$zojob_highest ${zojob_word:-COMPLETED}"
    fi
}

# Cancels the job, again and again until the cluster has heard it.
zojob_cancel() {
    zojob_pause=2 zojob_told=''
    : >"$zojob_c/error"
    until zojob_whole scancel ${zojob_cluster:+-M "$zojob_cluster"} "$zojob_id" 2>"$zojob_c/error"; do
        zojob_error
        case $zojob_error in *'nvalid job id'*) break ;; esac
        [ -n "$zojob_told" ] ||
            zojob_say "the cluster does not answer; job $zojob_id is cancelled as soon as it does"
        zojob_told=1 zojob_signal=''
        zojob_sleep "$zojob_pause"
        zojob_grow
    done
}

# Waits some seconds for the end of a job that was cancelled.
zojob_settle() {
    zojob_pause=2
    while [ "$zojob_pause" -lt 30 ] && [ ! -e "$zojob_c/end" ]; do
        zojob_signal=''
        zojob_sleep "$zojob_pause"
        zojob_grow
        ! zojob_ask || zojob_note
    done
}

# Looks for a job that was handed over although sbatch had no answer; fails while the cluster does
# not answer.
zojob_find() {
    zojob_lines=$(exec 2>/dev/null; zojob_squeue -u "$(id -u)") || return
    while IFS='|' read -r zojob_job zojob_state zojob_code zojob_reason zojob_nodes zojob_path; do
        [ "$zojob_path" != "$zojob_c/batch|" ] || zojob_answer=${zojob_job%%[_+]*}
    done <<END
$zojob_lines
END
}

# OPTION...: hands the job over and sets zojob_answer to its number; fails when it was killed before.
zojob_hand_over() {
    zojob_pause=5 zojob_told=''
    while [ -z "$zojob_signal" ]; do
        : >"$zojob_c/error"
        # Without a shell between, which the signal would end although sbatch goes on.
        zojob_answer=$(
            trap '' TERM INT HUP
            zojob_clean
            exec sbatch --parsable "$@" "$zojob_c/batch" 2>"$zojob_c/error"
        )
        zojob_status=$?
        if [ "$zojob_status" = 0 ]; then
            cat "$zojob_c/error" >&2 # sbatch's warnings; may be ended by a signal
            return 0
        fi
        [ "$zojob_status" != 143 ] || continue # a signal came before sbatch
        zojob_error
        case $zojob_error in
        *'ontact slurm controller'* | *'timed out'* | *'onnection failure'* | *'Zero Bytes'* | \
            *'standby mode'* | *'not responding'* | *'emporarily'* | *'onnection refused'*) ;;
        *)
            cat "$zojob_c/error" >&2
            zojob_say 'sbatch refused the job: the command was not run'
            exit 125
            ;;
        esac
        [ -n "$zojob_told" ] ||
            zojob_say 'the cluster does not answer: the job is handed over as soon as it does'
        zojob_told=1
        # It may have taken the job all the same: a second one must not run, and a killed one neither.
        # Looked for twice, since the question can overtake what waited for the cluster.
        zojob_times=0
        while [ "$zojob_times" -lt 2 ] && [ -z "$zojob_answer" ]; do
            zojob_was=$zojob_signal zojob_signal=''
            zojob_sleep "$zojob_pause"
            zojob_signal=$zojob_signal$zojob_was
            if zojob_find; then
                zojob_times=$((zojob_times + 1))
            else
                zojob_grow
            fi
        done
        [ -z "$zojob_answer" ] || return 0
    done
    return 1
}

# The script was sent a SIGTERM.
zojob_stop() {
    if [ ! -e "$zojob_d/kill" ]; then
        zojob_say "ended, but not by 'zojob kill': the cluster's job $zojob_id goes on; see 'zojob wait'"
        exit 143
    fi
    zojob_cancel
    zojob_settle
    exit 143
}

# Why a job has ended that did not end by itself.
zojob_explain() {
    case $1 in
    CANCELLED) zojob_say 'cancelled on the cluster' ;;
    TIMEOUT) zojob_say 'ran into the time limit of the cluster' ;;
    DEADLINE) zojob_say 'ran into its deadline on the cluster' ;;
    OUT_OF_MEMORY) zojob_say 'ran out of memory on the cluster' ;;
    NODE_FAIL | BOOT_FAIL) zojob_say 'its node failed' ;;
    PREEMPTED | REVOKED) zojob_say "the cluster ended it ($1)" ;;
    FORGOTTEN) zojob_say "the cluster has forgotten job $zojob_id: how it ended is not known" ;;
    FAILED)
        [ -e "$zojob_c/start" ] ||
            zojob_say "the cluster could not begin it: can its nodes write $zojob_d and the output?"
        ;;
    esac
}

# DETACH OPTION...: what the job's script does.
zojob_main() {
    zojob_detach=$1 zojob_signal='' zojob_cluster='' zojob_silent=0 zojob_woken='' zojob_lost=''
    shift
    trap zojob_signal=1 TERM INT HUP
    if ! command -v sbatch >/dev/null; then
        zojob_say "no sbatch in PATH on $(uname -n): the command was not run"
        exit 125
    fi
    if [ ! -s "$zojob_c/id" ]; then
        if ! zojob_hand_over "$@"; then
            [ -e "$zojob_d/kill" ] || zojob_say 'ended before it was handed over: nothing was run'
            exit 143
        fi
        zojob_put id "$zojob_answer" || zojob_lost=1
    fi
    read -r zojob_id <"$zojob_c/id" || zojob_id=$zojob_answer
    case $zojob_id in *';'*) zojob_cluster=${zojob_id#*;} zojob_id=${zojob_id%%;*} ;; esac
    if [ -n "$zojob_lost" ]; then
        zojob_say "cannot note the number of the job, $zojob_id: it is cancelled"
        zojob_cancel
        exit 125
    fi
    zojob_pause=1
    while [ ! -e "$zojob_c/end" ]; do
        [ -z "$zojob_signal" ] || zojob_stop
        if zojob_ask; then
            zojob_note
            zojob_silent=0
        elif [ -z "$zojob_signal" ]; then
            zojob_silent=$((zojob_silent + 1))
            [ "$zojob_silent" != 2 ] || zojob_put state 'no answer from the cluster'
            # The command has ended, and nobody else can have ended it meanwhile.
            if [ "$zojob_silent" -gt 2 ] && [ -e "$zojob_c/tasks/job" ]; then
                zojob_lines=''
                zojob_note
            fi
        fi
        [ -z "$zojob_detach" ] || exit 0
        [ -e "$zojob_c/end" ] || zojob_rest
    done
    read -r zojob_status zojob_word <"$zojob_c/end"
    zojob_explain "$zojob_word"
    exit "$zojob_status"
}

# DIRECTORY: takes up a job that no script stands for; fails when it has no number or has ended.
zojob_enter() {
    zojob_d=$1 zojob_c=$1/cluster zojob_cluster='' zojob_signal='' zojob_id=''
    [ -e "$zojob_c/id" ] && [ ! -e "$zojob_c/end" ] && read -r zojob_id <"$zojob_c/id" || return
    case $zojob_id in *';'*) zojob_cluster=${zojob_id#*;} zojob_id=${zojob_id%%;*} ;; esac
}

# DIRECTORY...: asks the cluster once, and notes what becomes of these jobs. What was to be killed
# and is still there, since nobody heard it, is cancelled.
zojob_look() {
    zojob_all=$(zojob_cluster='' && zojob_squeue -u "$(id -u)") || return
    for zojob_one; do
        zojob_enter "$zojob_one" || continue
        zojob_lines=$zojob_all
        [ -z "$zojob_cluster" ] || zojob_ask || continue
        zojob_note
        if [ -e "$zojob_d/kill" ]; then
            [ -e "$zojob_c/end" ] || zojob_cancel
        elif [ -e "$zojob_c/end" ] && read -r zojob_status zojob_word <"$zojob_c/end"; then
            zojob_explain "$zojob_word" 2>>"$zojob_d/log"
        fi
    done
}

# DIRECTORY: cancels a job, and waits a moment for its end.
zojob_kill() {
    zojob_enter "$1" || return 0
    zojob_cancel
    zojob_settle
}
)sh";

const char* const SLURM_BATCH_START =
    R"sh(# What the node runs. The names begin with zojob_, since the command inherits the variables.
zojob_c=$zojob_d/cluster zojob_t=${SLURM_ARRAY_TASK_ID:-job} zojob_s=''
zojob_say() { printf 'zojob: %s\n' "$1" >&2; }
zojob_put() { # FILE TEXT
    printf '%s\n' "$2" >"$zojob_c/.new.$SLURM_JOB_ID" && mv -f "$zojob_c/.new.$SLURM_JOB_ID" "$zojob_c/$1"
}
zojob_nowhere() {
    zojob_say "$SLURMD_NODENAME cannot enter the directory: the command was not run"
    zojob_end 125
}
zojob_end() { zojob_put "tasks/$zojob_t" "$1"; exit "$1"; }

if ! [ -d "$zojob_c/tasks" ]; then
    zojob_say "$SLURMD_NODENAME does not see $zojob_d, which all nodes must share: the command was not run"
    exit 125
fi
# The number is noted a moment after the cluster has taken the job. When nobody is left to note it,
# the job does. One that is not the noted one was handed over twice, since the first answer was lost.
zojob_n=0
while [ ! -s "$zojob_c/id" ] && [ ! -e "$zojob_d/kill" ]; do
    [ "$zojob_n" -lt 300 ] || zojob_put id "${SLURM_ARRAY_JOB_ID:-$SLURM_JOB_ID}"
    sleep 0.1
    zojob_n=$((zojob_n + 1))
done
[ ! -e "$zojob_d/kill" ] || zojob_end 143
read -r zojob_n <"$zojob_c/id"
[ "${zojob_n%%;*}" = "${SLURM_ARRAY_JOB_ID:-$SLURM_JOB_ID}" ] || exit 0

[ "${SLURM_RESTART_COUNT:-0}" = 0 ] || zojob_say "the cluster has begun this again (restart $SLURM_RESTART_COUNT)"
rm -f "$zojob_c/tasks/$zojob_t"
zojob_put start "$SLURMD_NODENAME"
if [ -n "$SLURM_ARRAY_TASK_ID" ]; then
    zojob_put count "$SLURM_ARRAY_TASK_COUNT"
else
    zojob_put state "RUNNING on $SLURM_JOB_NODELIST"
fi
# A signal for the batch script alone is meant for the command; SIGTERM reaches all its processes.
for zojob_n in HUP USR1 USR2 ALRM; do
    trap "zojob_s=1; kill -s $zojob_n \$zojob_p" $zojob_n
done
trap zojob_s=1 TERM
exec 3<&0
)sh";

const char* const SLURM_BATCH_END = R"sh(zojob_p=$! zojob_n=''
while :; do
    zojob_s='' zojob_was=$zojob_n
    wait "$zojob_p"
    zojob_n=$?
    [ "$zojob_n" != 127 ] || zojob_n=${zojob_was:-127} # it had ended just when a signal came
    [ "$zojob_n" -gt 128 ] && [ -n "$zojob_s" ] || break
done
zojob_end "$zojob_n"
)sh";
