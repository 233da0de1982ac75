# Completion of zojob for bash: commands, options, and the jobs of the queue with what they are.
# The jobs are read from the queue file: no server is needed, and none is started.
#
# An installed zojob under PREFIX: the package bash-completion finds this file by itself when
# PREFIX/share is in XDG_DATA_DIRS, or without that by this line in ~/.bashrc:
#     . PREFIX/share/bash-completion/completions/zojob

_zojob_states='waiting running done failed timed-out skipped killed cancelled'

# Prints the commands and options that may follow a command; without one, those of zojob itself.
_zojob_options() {
    local common='--host --root --color --help --version'
    case $1 in
    submit | add)
        echo "--label --directory --run --wait --quiet --after --after-any --timeout --retry --then" \
            "--shell --lines --slurm --detach --json $common"
        ;;
    kill) echo "--grace --continue $common" ;;
    again) echo "--run $common" ;;
    list | ls) echo "--state --watch --wide --json --no-header -n $common" ;;
    remove | rm) echo "--force --finished --failed --all $common" ;;
    log) echo "--follow --lines $common" ;;
    wait) echo "--timeout $common" ;;
    show) echo "--script --json $common" ;;
    status) echo "--json $common" ;;
    run | stop | quit | window | help | version) echo "$common" ;;
    *) echo "submit list run kill remove again log wait show status stop quit window help version $common" ;;
    esac
}

# Prints the jobs that a command can take: one line each, with name, tab and description.
_zojob_jobs() {
    case $1 in
    run) zojob list --names --state waiting ;;
    kill) zojob list --names --state waiting,running ;;
    remove | rm) zojob list --names ;;
    wait) zojob list --names --state waiting,running ;;
    log | show | again | after) zojob list --names ;;
    esac 2>/dev/null
}

# Completes the name of a job. Descriptions are shown while there is a choice, but never where a
# choice is put into the line as it stands: nothing in a label may come to be run. A name comes from
# whoever made the job's directory, and is quoted. After "after", commas may stand between names.
_zojob_complete_jobs() {
    local line name before=''
    local -a names=() lines=()
    [[ $1 != after || $cur != *,* ]] || before=${cur%,*},
    while IFS= read -r line; do
        printf -v name %q "${line%%$'\t'*}"
        [[ $before$name == "$cur"* ]] || continue
        names+=("$before$name")
        lines+=("$before$name  (${line#*$'\t'})")
    done < <(_zojob_jobs "$1")
    for name in last running failed; do
        [[ $before$name == "$cur"* && $cur != "$before" ]] &&
            names+=("$before$name") lines+=("$before$name")
    done
    if ((${#names[@]} == 1)) || [[ ${COMP_TYPE-} == @(37|42) ]]; then
        lines=("${names[@]}")
    fi
    _zojob_reply "${lines[@]}"
}

# Completes words of a list; with -C, the last one of several with commas between them.
_zojob_complete_words() {
    local before=''
    if [[ $1 == -C ]]; then
        shift
        [[ $cur != *,* ]] || before=${cur%,*},
    fi
    local -a found
    mapfile -t found < <(compgen -P "$before" -W "$1" -- "${cur#"$before"}")
    _zojob_reply "${found[@]}"
}

# Completes names of files (-f) or directories (-d).
_zojob_files() {
    local -a found
    compopt -o filenames 2>/dev/null
    mapfile -t found < <(compgen "$1" -- "$cur")
    _zojob_reply "${found[@]}"
}

# Takes the choices. What is left of a colon or an equal sign stands in a word of its own to bash, and
# stays in the line.
_zojob_reply() {
    local kept=$option
    [[ -z $option || $COMP_WORDBREAKS != *=* ]] || kept=''
    COMPREPLY=("${@/#/"$kept"}")
    [[ $cur != *:* || $COMP_WORDBREAKS != *:* ]] ||
        COMPREPLY=("${COMPREPLY[@]#"$kept${cur%"${cur##*:}"}"}")
}

_zojob() {
    # The words as they are separated by blanks: bash itself would part ID:DIRECTORY at the colon.
    local line=${COMP_LINE:0:COMP_POINT} cur prev command='' option='' word i
    local -a words
    read -ra words <<<"$line"
    [[ $line == *[[:space:]] ]] && words+=('')
    cur=${words[-1]} prev=${words[-2]}
    COMPREPLY=()
    for ((i = 1; i < ${#words[@]} - 1; ++i)); do
        word=${words[i]}
        case $word in
        --host | --root | --color) ((++i)) ;;
        -*) ;;
        *) command=$word && break ;;
        esac
    done
    if [[ $command == submit || $command == add ]]; then
        # From the first word of the job's own command on, it is completed like any command.
        for ((++i; i < ${#words[@]} - 1; ++i)); do
            case ${words[i]} in
            --label | --directory | --host | --root | --color | -*[LC]) ((++i)) ;;
            --after | --after-any | --timeout | --retry | --then | --shell | --lines) ((++i)) ;;
            --) ((++i)) && break ;;
            -*) ;;
            *) break ;;
            esac
        done
        if ((i < ${#words[@]} - 1)); then
            _zojob_files -f
            return
        fi
    fi
    if [[ $cur == --*=* ]]; then
        option=${cur%%=*}= cur=${cur#*=}
        prev=${option%=}
    fi
    case $prev in
    --color) _zojob_complete_words 'auto never always' ;;
    --state) _zojob_complete_words -C "$_zojob_states" ;;
    --host) mapfile -t COMPREPLY < <(compgen -A hostname -- "$cur") ;;
    --root | --directory | -C) _zojob_files -d ;;
    --lines) [[ $command == log ]] || _zojob_files -f ;;
    --shell) mapfile -t COMPREPLY < <(compgen -c -- "$cur") ;;
    --after | --after-any) _zojob_complete_jobs after ;;
    --label | -L | --timeout | --retry | --then | --grace | -n) ;;
    *) [[ -n $option ]] || _zojob_word ;;
    esac
}

# Completes a word that is no value of an option.
_zojob_word() {
    if [[ $cur == -* || -z $command ]]; then
        _zojob_complete_words "$(_zojob_options "$command")"
    elif [[ $command == submit || $command == add ]]; then
        mapfile -t COMPREPLY < <(compgen -c -- "$cur")
    elif [[ $command == help ]]; then
        _zojob_complete_words 'submit list run kill remove again log wait show status stop quit window help version'
    else
        _zojob_complete_jobs "$command"
    fi
}

complete -F _zojob zojob
