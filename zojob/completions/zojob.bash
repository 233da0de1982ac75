# Completion of zojob for bash: commands, options, and the jobs of the queue with what they are.
# Asking for the jobs never starts a server.

# Prints the commands and options that may follow a command; without one, those of zojob itself.
_zojob_options() {
    local common='--host --root --color --help --version'
    case $1 in
    submit | add) echo "--label --directory --run --wait --quiet --slurm --detach --json $common" ;;
    list | ls) echo "--state --watch --wide --json --no-header -n $common" ;;
    remove | rm) echo "--force --finished $common" ;;
    log) echo "--follow --lines $common" ;;
    wait) echo "--timeout $common" ;;
    show | status) echo "--json $common" ;;
    run | kill | quit | window) echo "$common" ;;
    *) echo "submit list run kill remove log wait show status quit window $common" ;;
    esac
}

# Prints the jobs that a command can take: one line each, with name, tab and description.
_zojob_jobs() {
    case $1 in
    run) zojob list --names --state waiting ;;
    kill) zojob list --names --state running ;;
    remove | rm) zojob list --names --state waiting,done,killed ;;
    wait) zojob list --names --state waiting,running ;;
    log | show) zojob list --names ;;
    esac 2>/dev/null
}

# Completes the name of a job. Descriptions are shown while there is a choice; a single match is
# only its name.
_zojob_complete_jobs() {
    local line name
    local -a names=() lines=()
    while IFS= read -r line; do
        name=${line%%$'\t'*}
        [[ $name == "$cur"* ]] || continue
        names+=("$name")
        lines+=("$name  (${line#*$'\t'})")
    done < <(_zojob_jobs "$1")
    for name in last running failed; do
        [[ $name == "$cur"* && -n $cur ]] && names+=("$name") lines+=("$name")
    done
    if ((${#names[@]} == 1)); then
        lines=("${names[0]}")
    fi
    # What is left of a colon stands in a word of its own to bash, and stays.
    [[ $cur == *:* && $COMP_WORDBREAKS == *:* ]] && lines=("${lines[@]#"${cur%"${cur##*:}"}"}")
    COMPREPLY=("${lines[@]}")
}

# Completes names of files (-f) or directories (-d).
_zojob_files() {
    compopt -o filenames 2>/dev/null
    mapfile -t COMPREPLY < <(compgen "$1" -- "$cur")
}

_zojob() {
    # The words as they are separated by blanks: bash itself would part ID:DIRECTORY at the colon.
    local line=${COMP_LINE:0:COMP_POINT} cur prev command='' word i
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
    case $prev in
    --color) mapfile -t COMPREPLY < <(compgen -W 'auto never always' -- "$cur") ;;
    --state) mapfile -t COMPREPLY < <(compgen -W 'waiting running done killed' -- "$cur") ;;
    --host) mapfile -t COMPREPLY < <(compgen -A hostname -- "$cur") ;;
    --root | --directory | -C) _zojob_files -d ;;
    --label | -L | --timeout | --lines | -n) ;;
    *)
        if [[ $cur == -* || -z $command ]]; then
            mapfile -t COMPREPLY < <(compgen -W "$(_zojob_options "$command")" -- "$cur")
        elif [[ $command == submit || $command == add ]]; then
            mapfile -t COMPREPLY < <(compgen -c -- "$cur")
        else
            _zojob_complete_jobs "$command"
        fi
        ;;
    esac
}

complete -F _zojob zojob
