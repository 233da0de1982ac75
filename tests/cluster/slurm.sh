#!/bin/bash
# slurm.sh start DIR | slurm.sh stop DIR: a Slurm cluster of three nodes, n1 to n3, for tests. All of it
# runs on this machine, as the calling user and from DIR, with neither systemd nor cgroups nor
# accounting. Its clients need SLURM_CONF=DIR/slurm.conf and nothing else.
#
# Wants Debian's munge, slurmctld, slurmd and slurm-client, and a network of its own: the ports are
# always the same. No rights are needed. "start" returns when all nodes are ready.

set -u
command=${1-} dir=$(realpath -m "${2?}")
PATH=$PATH:/usr/sbin:/sbin
export SLURM_CONF=$dir/slurm.conf
nodes=(n1 n2 n3)
port=17000

write_configuration() {
    local host user node port=$port
    host=$(uname -n) user=$(id -un)
    cat <<END
ClusterName=test
SlurmctldHost=${host%%.*}(127.0.0.1)
SlurmctldPort=$port
SlurmUser=$user
SlurmdUser=$user
SlurmctldPidFile=$dir/pid.slurmctld
SlurmdPidFile=$dir/pid.%n
SlurmctldLogFile=$dir/log.slurmctld
SlurmdLogFile=$dir/log.%n
StateSaveLocation=$dir/state
SlurmdSpoolDir=$dir/spool.%n
PlugStackConfig=$dir/plugstack.conf
AuthInfo=socket=$dir/munge
ProctrackType=proctrack/linuxproc
# A machine without an address but 127.0.0.1 finds no name, not even that one, for IPv4 alone: the
# daemons would end after ten seconds.
CommunicationParameters=EnableIPv6
# Memory is watched without cgroups.
JobAcctGatherType=jobacct_gather/linux
JobAcctGatherFrequency=1
JobAcctGatherParams=OverMemoryKill
SelectType=select/cons_tres
SelectTypeParameters=CR_CPU_Memory
DefMemPerCPU=100
# A node has what is said here, whatever the machine has.
SlurmdParameters=config_overrides
SchedulerParameters=sched_interval=1,sched_min_interval=0,batch_sched_delay=0,bf_interval=1
ReturnToService=2
SlurmdTimeout=10
MessageTimeout=4
KillWait=3
END
    for node in "${nodes[@]}"; do
        echo "NodeName=$node NodeHostname=${host%%.*} NodeAddr=127.0.0.1 Port=$((++port))" \
            "CPUs=4 RealMemory=2000"
    done
    echo "PartitionName=main Nodes=ALL Default=YES State=UP"
}

start() {
    local node
    mkdir -p "$dir/state" "${nodes[@]/#/$dir/spool.}" && chmod 755 "$dir" || return
    (umask 077 && head -c 128 /dev/urandom >"$dir/munge.key") || return
    write_configuration >"$SLURM_CONF"
    : >"$dir/plugstack.conf"
    munged --force --key-file="$dir/munge.key" --socket="$dir/munge" --pid-file="$dir/pid.munged" \
        --log-file="$dir/log.munged" --seed-file="$dir/munge.seed" 2>"$dir/log.start" || return
    slurmctld -c || return
    # A node that comes too early tries again only after a second.
    for ((n = 0; n < 400; ++n)); do
        (: </dev/tcp/127.0.0.1/$port) 2>/dev/null && break
        sleep 0.01
    done
    for node in "${nodes[@]}"; do slurmd -N "$node" & done
    wait
    for ((n = 0; n < 400; ++n)); do
        [ "$(sinfo -h -N -t idle -o %N 2>/dev/null | wc -l)" = ${#nodes[@]} ] && return
        sleep 0.02
    done
    return 1
}

stop() {
    local file pid
    for file in "$dir"/pid.*; do kill -9 "$(<"$file")"; done
    # Commands of a node that counted as failed are killed by nobody.
    for file in /proc/[0-9]*/environ; do
        pid=${file#/proc/} pid=${pid%/environ}
        grep -qsz "^SLURM_CONF=$SLURM_CONF\$" "$file" && grep -qsz '^SLURMD_NODENAME=' "$file" &&
            kill -9 "$pid"
    done
    return 0
}

case $command in
start) start || { tail -n 5 "$dir"/log.* >&2 && stop && exit 1; } ;;
stop) stop ;;
*) sed -n '2,8s/^# \{0,1\}//p' "$0" && exit 2 ;;
esac
