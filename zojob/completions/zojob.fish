# Completion of zojob for fish: commands, options, and the jobs of the queue with what they are.
# The jobs are read from the queue file: no server is needed, and none is started.
#
# An installed zojob under PREFIX is completed when PREFIX/share is in XDG_DATA_DIRS before fish starts,
# or without that by this line in ~/.config/fish/config.fish:
#     source PREFIX/share/fish/vendor_completions.d/zojob.fish

set -l commands submit add list ls run kill remove rm again log wait show status stop quit window help version
set -l none "not __fish_seen_subcommand_from $commands"

# __zojob_names [STATES]: the jobs in these states, with what they are; without states, also the words that
# name a job.
function __zojob_names
    set -q argv[1]; and set -l states --state $argv[1]
    zojob list --names $states 2>/dev/null
    set -q argv[1]; or printf '%s\t%s\n' last 'the job submitted last' running 'the running job' failed 'the job that failed last'
end

# __zojob_jobs COMMANDS [STATES]: completes the jobs in these states after one of the commands.
function __zojob_jobs
    complete -c zojob -f -k -n "__fish_seen_subcommand_from $argv[1]" -a "(__zojob_names $argv[2])"
end

complete -c zojob -f -n $none -a submit -d 'Queue a command'
complete -c zojob -f -n $none -a list -d 'List the queue'
complete -c zojob -f -n $none -a run -d 'Run one waiting job, or all'
complete -c zojob -f -n $none -a kill -d 'Kill the running job'
complete -c zojob -f -n $none -a remove -d 'Remove jobs'
complete -c zojob -f -n $none -a log -d "Print a job's output"
complete -c zojob -f -n $none -a wait -d 'Wait for jobs'
complete -c zojob -f -n $none -a show -d 'Show everything about a job'
complete -c zojob -f -n $none -a status -d 'Say whether a server runs, and what'
complete -c zojob -f -n $none -a again -d 'Submit jobs anew'
complete -c zojob -f -n $none -a stop -d 'Stop after the running job'
complete -c zojob -f -n $none -a quit -d 'End the server'
complete -c zojob -f -n $none -a window -d 'Open the queue in a window'
complete -c zojob -f -n $none -a help -d 'Say how zojob or a command is used'
complete -c zojob -f -n $none -a version -d 'Print the version'
complete -c zojob -f -n '__fish_seen_subcommand_from help' -a "$commands"

complete -c zojob -l host -x -a '(__fish_print_hostnames)' -d 'Use the server on that machine'
complete -c zojob -l root -x -a '(__fish_complete_directories)' -d 'Installation directory'
complete -c zojob -l color -x -a 'auto never always' -d Colour
complete -c zojob -s h -l help -d 'Say how it is used'
complete -c zojob -s V -l version -n $none -d 'Print the version'

set -l submit '__fish_seen_subcommand_from submit add'
complete -c zojob -n $submit -s L -l label -x -d Description
complete -c zojob -n $submit -s C -l directory -x -a '(__fish_complete_directories)' -d 'Run there'
complete -c zojob -n $submit -s r -l run -d 'Also run the waiting jobs'
complete -c zojob -n $submit -s w -l wait -d 'Wait, and end with its status'
complete -c zojob -n $submit -s q -l quiet -d 'Print nothing'
set -l jobs '(__fish_append , (__zojob_names))'
complete -c zojob -n $submit -l after -x -k -a $jobs -d 'Only if these have ended with 0'
complete -c zojob -n $submit -l after-any -x -k -a $jobs -d 'Only if these have ended'
complete -c zojob -n $submit -l timeout -x -d 'End it after this time'
complete -c zojob -n $submit -l retry -x -d 'Again while it fails'
complete -c zojob -n $submit -l then -x -d 'Run this at its end'
complete -c zojob -n $submit -l shell -x -a '(__fish_complete_command)' -d 'Shell of the job'
complete -c zojob -n $submit -l lines -r -F -d 'One job for each line'
complete -c zojob -n $submit -l slurm -d 'Hand it over to the Slurm cluster'
complete -c zojob -n $submit -l detach -d 'Go on with the queue once it is handed over'
complete -c zojob -n $submit -l json -d 'Print the job as JSON'
complete -c zojob -n $submit -x -a '(__fish_complete_subcommand --fcs-skip=2 -L --label -C --directory --after --after-any --timeout --retry --then --shell --lines)'

set -l list '__fish_seen_subcommand_from list ls'
complete -c zojob -f -n $list
complete -c zojob -n $list -l state -x -a '(__fish_append , waiting running done failed timed-out skipped killed cancelled)' -d 'Only these'
complete -c zojob -n $list -s n -x -d 'Only the last jobs'
complete -c zojob -n $list -l watch -d 'Again every so many seconds'
complete -c zojob -n $list -l wide -d 'All columns'
complete -c zojob -n $list -l no-header -d 'Neither headings nor counts'
complete -c zojob -n '__fish_seen_subcommand_from list ls show status' -l json -d 'As JSON'

__zojob_jobs run waiting
__zojob_jobs kill waiting,running
__zojob_jobs 'remove rm'
__zojob_jobs wait waiting,running
__zojob_jobs 'log show again'
functions -e __zojob_jobs

set -l remove '__fish_seen_subcommand_from remove rm'
complete -c zojob -n $remove -l force -d 'Also directories that zojob did not make'
complete -c zojob -n $remove -l finished -d 'All that have ended and have not failed'
complete -c zojob -n $remove -l failed -d 'All that have failed'
complete -c zojob -n $remove -l all -d 'All that have ended'
complete -c zojob -n '__fish_seen_subcommand_from show' -l script -d 'Also the script'
complete -c zojob -n '__fish_seen_subcommand_from log' -s f -l follow -d 'Go on until the job ends'
complete -c zojob -n '__fish_seen_subcommand_from log' -s n -l lines -x -d 'Only the last lines'
complete -c zojob -n '__fish_seen_subcommand_from wait' -l timeout -x -d 'Seconds'
complete -c zojob -n '__fish_seen_subcommand_from kill' -l grace -x -d 'Seconds until SIGKILL'
complete -c zojob -n '__fish_seen_subcommand_from kill' -l continue -d 'Go on with the queue'
complete -c zojob -n '__fish_seen_subcommand_from again' -s r -l run -d 'Also run the waiting jobs'
complete -c zojob -f -n '__fish_seen_subcommand_from status stop quit version'
