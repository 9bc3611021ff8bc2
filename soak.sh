#!/usr/bin/env bash
# Serves 50 simulated devices and the machine's own DHCP clients for so many minutes, 60 when not said, on a network of
# its own, as root. The devices get, renew, release and decline addresses and are switched off and on; the server's
# cable is interrupted and mended, and the server stopped and started again. Says at the end what was kept of what is
# promised, and fails if anything was not. Everything is put into a folder: report.txt, soak.svg, samples.csv,
# holds.csv, server.log.
#   soak.sh [MINUTES] [--out FOLDER]   the folder is build/soak when not said
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)

minutes=60
out=$root/build/soak
usage() {
    sed -n '2,7s/^# \{0,1\}//p' "${BASH_SOURCE[0]}" >&2
    exit 2
}
while [ $# -gt 0 ]; do
    case "$1" in
    --out)
        [ $# -ge 2 ] || usage
        out=$2
        shift
        ;;
    *)
        [[ $1 =~ ^[1-9][0-9]*$ ]] || usage
        minutes=$1
        ;;
    esac
    shift
done
if [ "$(id -u)" -ne 0 ]; then
    echo "soak: only root may make network namespaces" >&2
    exit 1
fi

"$root/scripts/setup" build test
cd "$root"
cmake --preset release --log-level=WARNING -DTARNWICK_BENCHMARKS=ON >/dev/null
cmake --build --preset release --target tarnwick dhcp-soak >&2
mkdir -p "$out"
out=$(cd "$out" && pwd)

# Names and files of this run only; further builds are welcome meanwhile.
work=$(mktemp -d "$out/work.XXXXXX")
cp build/release/tarnwick build/release/Benchmarks/dhcp-soak "$work"
rm -f "$out"/{report.txt,soak.svg,samples.csv,holds.csv,server.log}
name=tarnwick-soak-$$
serving=$name-server
switch=$name-switch
networks=("$serving" "$switch")
pool=(10.78.0.10 10.78.0.250)
seconds=$((minutes * 60))
server_pid=
devices_pid=
life=0

# Ends a process of ours that is still there, kindly at first.
end() {
    [ -n "$1" ] || return 0
    kill -TERM "$1" 2>/dev/null || true
    for _ in $(seq 40); do
        kill -0 "$1" 2>/dev/null || break
        sleep 0.05
    done
    kill -KILL "$1" 2>/dev/null || true
    wait "$1" 2>/dev/null || true
}

clean_up() {
    local network pid
    end "$devices_pid"
    end "$server_pid"
    for network in "${networks[@]}"; do
        for pid in $(ip netns pids "$network" 2>/dev/null); do
            kill -KILL "$pid" 2>/dev/null || true
        done
        ip netns delete "$network" 2>/dev/null || true
    done
    rm -rf "$work"
}
trap clean_up EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

fail() {
    echo "FAIL $1" | tee -a "$work/failures"
}

# Gives the network $1 a card $2 with a cable to the switch.
plug_in() {
    local network=$1 card=$2 port=port$((++ports))
    ip -n "$network" link add "$card" type veth peer name "$port" netns "$switch"
    ip -n "$switch" link set "$port" master bridge up
    ip -n "$network" link set lo up
    ip -n "$network" link set "$card" up
}

# $1: one of the machine's clients, in a network of its own. Says nothing; what it holds is seen on its card.
start_client() {
    local client=$1 network=$name-$1 folder=$work/$1
    command -v "$client" >/dev/null || return 0
    networks+=("$network")
    clients+=("$client")
    mkdir -p "$folder/state" "$folder/run"
    ip netns add "$network"
    plug_in "$network" eth0
    local words=()
    case "$client" in
    udhcpc)
        printf '#!/bin/sh\n[ -n "$ip" ] || exec ip address flush dev $interface\nip address replace $ip/$mask dev $interface\n' \
            >"$folder/apply"
        words=(udhcpc -f -i eth0 -s "$folder/apply")
        ;;
    dhclient)
        printf '#!/bin/sh\n[ -n "$new_ip_address" ] || exec ip address flush dev $interface\nip address replace $new_ip_address/$new_subnet_mask dev $interface\n' \
            >"$folder/apply"
        : >"$folder/leases"
        words=(dhclient -4 -d -cf /dev/null -lf "$folder/leases" -pf "$folder/pid" -sf "$folder/apply" eth0)
        ;;
    dhcpcd) # knows fixed folders only; the mounts are seen by this process alone
        echo root:x:0:0:root:/root:/bin/sh >"$folder/users"
        printf 'nodelay\nnoipv4ll\n' >"$folder/configuration"
        words=(sh -c "mount --bind $folder/state /var/lib/dhcpcd && mount --bind $folder/run /run && \
            mount --bind $folder/users /etc/passwd && exec dhcpcd -4 -B -f $folder/configuration -c /dev/null eth0")
        ;;
    esac
    [ ! -e "$folder/apply" ] || chmod +x "$folder/apply"
    ip netns exec "$network" "${words[@]}" </dev/null >"$folder/output" 2>&1 &
    disown
}

# Every second life of the server speaks JSON.
start_server() {
    local words=("$work/tarnwick" serve --iface serve0 --server 10.78.0.1/24 --range "${pool[0]}-${pool[1]}"
        --lease 60s --leases "$work/leases.json")
    [ $((++life % 2)) -eq 1 ] || words+=(--json)
    ip netns exec "$serving" env XDG_STATE_HOME="$work/state" "${words[@]}" </dev/null >>"$out/server.log" \
        2>>"$work/errors" &
    server_pid=$!
}

restart_server() {
    local status=0
    kill -INT "$server_pid"
    wait "$server_pid" || status=$?
    [ "$status" -eq 0 ] || fail "the server ended with $status"
    start_server
}

sample_server() {
    local status memory threads descriptors
    if ! kill -0 "$server_pid" 2>/dev/null; then
        fail "the server has ended by itself"
        start_server
        return
    fi
    status=$(<"/proc/$server_pid/status")
    memory=${status#*VmRSS:} threads=${status#*Threads:}
    read -r memory _ <<<"$memory"
    read -r threads _ <<<"$threads"
    descriptors=("/proc/$server_pid/fd/"*)
    echo "$elapsed,$life,$memory,${#descriptors[@]},$threads" >>"$out/samples.csv"
}

# What the machine's own clients hold, at instants.
sample_clients() {
    local client before ip
    for client in "${clients[@]}"; do
        before=$EPOCHREALTIME
        ip=$(ip -n "$name-$client" -4 -o address show dev eth0 scope global | sed -n 's|.* inet \([0-9.]*\)/.*|\1|p')
        [ -z "$ip" ] || echo "$client,$ip,$before,$before" >>"$work/client-holds.csv"
    done
}

ip netns add "$serving"
ip netns add "$switch"
ports=0
clients=()
ip -n "$switch" link add bridge type bridge
ip -n "$switch" link set bridge up
plug_in "$serving" serve0
server_port=port$ports
ip -n "$serving" address add 10.78.0.1/24 dev serve0
networks+=("$name-devices")
ip netns add "$name-devices"
plug_in "$name-devices" load0
: >"$work/client-holds.csv"

start_server
ip netns exec "$name-devices" "$work/dhcp-soak" devices --iface load0 --seconds "$seconds" --holds "$work/holds.csv" \
    >"$work/devices.txt" 2>&1 &
devices_pid=$!
for client in udhcpc dhclient dhcpcd; do
    start_client "$client"
done

# The server is restarted thrice in the first quarter, and once near the end: what lies between is one long life.
restarts=($((seconds / 12)) $((seconds / 6)) $((seconds / 4)) $((seconds * 11 / 12)))
next_flap=25
mend_at=0
elapsed=0
start=$SECONDS
while kill -0 "$devices_pid" 2>/dev/null; do
    elapsed=$((SECONDS - start))
    if [ ${#restarts[@]} -gt 0 ] && [ "$elapsed" -ge "${restarts[0]}" ]; then
        restarts=("${restarts[@]:1}")
        restart_server
    fi
    if [ "$mend_at" -gt 0 ] && [ "$elapsed" -ge "$mend_at" ]; then
        ip -n "$switch" link set "$server_port" up
        mend_at=0
        next_flap=$((elapsed + 50))
    elif [ "$mend_at" -eq 0 ] && [ "$elapsed" -ge "$next_flap" ]; then
        ip -n "$switch" link set "$server_port" down
        mend_at=$((elapsed + 3))
        flaps=$((${flaps:-0} + 1))
    fi
    sample_server
    sample_clients
    sleep 2
done

wait "$devices_pid" || fail "the devices"
devices_pid=
kill -INT "$server_pid"
wait "$server_pid" || fail "the server ended with $?"
server_pid=
{
    echo "$minutes minutes, $life starts of the server, the cable interrupted ${flaps:-0} times"
    for client in "${clients[@]}"; do
        echo "$client was seen with an address $(grep -c "^$client," "$work/client-holds.csv" || true) times"
        grep -q "^$client," "$work/client-holds.csv" || fail "$client never had an address"
    done
    cat "$work/devices.txt"
    [ ! -s "$work/errors" ] || fail "the server wrote to standard error: $(head -1 "$work/errors")"
    cat "$work/holds.csv" "$work/client-holds.csv" >"$out/holds.csv"
    "$work/dhcp-soak" report --samples "$out/samples.csv" --holds "$out/holds.csv" --output "$out/server.log" \
        --plot "$out/soak.svg" --first "${pool[0]}" --last "${pool[1]}" || fail "the report"
} | tee "$out/report.txt"
[ ! -e "$work/failures" ]
