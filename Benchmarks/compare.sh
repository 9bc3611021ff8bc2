#!/usr/bin/env bash
# Measures Tarnwick beside Kea, dnsmasq and bare echoes on a veth pair between two network namespaces of its own, as
# root, and prints the medians of all rounds, the ratios against the targets, and a plot. Everything is put into a
# folder: records.jsonl, report.md, plot.svg.
#   --rounds N     3 when not said
#   --out FOLDER   build/compare when not said
#   --tarnwick FILE  the server to measure, in place of the one that is built here (or $TARNWICK)
#   --pools "100 1000"  other than 100, 1,000, 10,000 and 60,000 leases
#   --milliseconds N    of each measurement, 2000 when not said
#   --smoke        everything once and shortly, to see that it works; the figures mean nothing
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

rounds=3
out=$root/build/compare
tarnwick=${TARNWICK:-}
pools="100 1000 10000 60000"
milliseconds=2000
flood_milliseconds=5000
smoke=no

usage() {
    sed -n '2,11s/^# \{0,1\}//p' "${BASH_SOURCE[0]}" >&2
    exit 2
}

while [ $# -gt 0 ]; do
    if [ "$1" = --smoke ]; then
        smoke=yes rounds=1 pools="100 1000" milliseconds=100 flood_milliseconds=300
        shift
        continue
    fi
    [ $# -ge 2 ] || usage
    case "$1" in
    --rounds) rounds=$2 ;;
    --out) out=$2 ;;
    --tarnwick) tarnwick=$2 ;;
    --pools) pools=$2 ;;
    --milliseconds) milliseconds=$2 ;;
    *) usage ;;
    esac
    shift 2
done
[[ $rounds =~ ^[1-9][0-9]*$ && $milliseconds =~ ^[1-9][0-9]*$ && $pools =~ ^[0-9\ ]+$ ]] || usage

if [ "$(id -u)" -ne 0 ]; then
    echo "compare: only root may make network namespaces" >&2
    exit 1
fi

"$root/scripts/setup" build test compare
cd "$root"
cmake --preset release --log-level=WARNING -DTARNWICK_BENCHMARKS=ON >/dev/null
cmake --build --preset release --target tarnwick dhcp-load dhcp-echo dhcp-report >&2
tools=$root/build/release/Benchmarks
tarnwick=$(realpath "${tarnwick:-$root/build/release/tarnwick}")
mkdir -p "$out"
out=$(cd "$out" && pwd)

# Names and files of this run only.
serving=tarnwick-compare-$$-server
loading=tarnwick-compare-$$-load
work=$(mktemp -d "$out/work.XXXXXX")
records=$work/records.jsonl
server_pid=

# Ends the server that runs, kindly at first.
end_server() {
    [ -n "$server_pid" ] || return 0
    kill -TERM "$server_pid" 2>/dev/null || true
    for _ in $(seq 100); do
        kill -0 "$server_pid" 2>/dev/null || break
        sleep 0.05
    done
    kill -KILL "$server_pid" 2>/dev/null || true
    wait "$server_pid" 2>/dev/null || true
    server_pid=
}

clean_up() {
    end_server
    ip netns delete "$serving" 2>/dev/null || true
    ip netns delete "$loading" 2>/dev/null || true
    rm -rf "$work"
}
trap clean_up EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

if ! ip netns add "$serving" || ! ip netns exec "$serving" true; then
    echo "compare: nothing compared, this machine lets root make no network namespace" >&2
    [ "$smoke" = yes ] && exit 0
    exit 1
fi
ip netns add "$loading"
ip -n "$serving" link add serve0 type veth peer name load0 netns "$loading"
ip -n "$serving" address add 10.77.0.1/16 dev serve0
ip -n "$serving" link set lo up
ip -n "$serving" link set serve0 up
ip -n "$loading" link set load0 up

# Where the servers may put what else they write.
export XDG_STATE_HOME=$work/state XDG_DATA_HOME=$work/data
export KEA_PIDFILE_DIR=$work KEA_LOCKFILE_DIR=$work KEA_DHCP_DATA_DIR=$work
# AppArmor knows Kea by its path, and lets it write in its own folders only.
cp "$(command -v kea-dhcp4 || echo /usr/sbin/kea-dhcp4)" "$work/kea-dhcp4"

# The last address of a pool of $1.
last_address() { echo "10.77.$((1 + ($1 - 1) / 256)).$((($1 - 1) % 256))"; }

kea_setting() {
    cat <<END
{ "Dhcp4": {
    "interfaces-config": { "interfaces": [ "serve0" ] },
    "lease-database": { "type": "memfile", "persist": true, "name": "$work/kea.csv", "lfc-interval": 0 },
    "valid-lifetime": 86400,
    "multi-threading": { "enable-multi-threading": false },
    "subnet4": [ { "subnet": "10.77.0.0/16", "id": 1, "interface": "serve0",
                   "pools": [ { "pool": "10.77.1.0-$(last_address "$1")" } ],
                   "option-data": [ { "name": "routers", "data": "10.77.0.1" } ] } ],
    "loggers": [ { "name": "kea-dhcp4", "severity": "FATAL", "output_options": [ { "output": "stderr" } ] } ] } }
END
}

# Writes what server $1 starts with when its pool of $2 is full, and puts its words into the array `command`.
prepare() {
    local server=$1 pool=$2
    rm -f "$work"/leases.json* "$work"/kea.csv* "$work"/dnsmasq.leases "$work"/echo.file*
    case "$server" in
    tarnwick)
        "$tools/dhcp-load" leases --format tarnwick --file "$work/leases.json" --clients "$pool" >/dev/null
        command=("$tarnwick" serve --iface serve0 --server 10.77.0.1/16 --range "10.77.1.0-$(last_address "$pool")"
            --lease 24h --router 10.77.0.1 --leases "$work/leases.json")
        ;;
    kea)
        "$tools/dhcp-load" leases --format kea --file "$work/kea.csv" --clients "$pool" >/dev/null
        kea_setting "$pool" >"$work/kea.json"
        command=("$work/kea-dhcp4" -c "$work/kea.json")
        ;;
    dnsmasq)
        "$tools/dhcp-load" leases --format dnsmasq --file "$work/dnsmasq.leases" --clients "$pool" >/dev/null
        command=(dnsmasq --keep-in-foreground --conf-file=/dev/null --port=0 --interface=serve0 --bind-interfaces
            --no-ping --dhcp-authoritative --quiet-dhcp --log-facility=/dev/null --user=root --pid-file=
            "--dhcp-range=10.77.1.0,$(last_address "$pool"),255.255.0.0,24h" "--dhcp-lease-max=$((pool + 10))"
            "--dhcp-leasefile=$work/dnsmasq.leases")
        ;;
    echo) command=("$tools/dhcp-echo" --iface serve0) ;;
    replace | drain)
        # As large as our own file for so many leases.
        "$tools/dhcp-load" leases --format tarnwick --file "$work/leases.json" --clients "$pool" >/dev/null
        command=("$tools/dhcp-echo" --iface serve0 --replace "$work/echo.file" --size "$(stat -c %s "$work/leases.json")")
        [ "$server" = replace ] || command+=(--drain)
        ;;
    esac
}

load() {
    local deed=$1
    shift
    ip netns exec "$loading" "$tools/dhcp-load" "$deed" --iface load0 "$@"
}

# Keeps the result of one measurement, which is what follows the names of server, pool, round and measurement.
record() {
    local server=$1 pool=$2 round=$3 cell=$4 result
    shift 4
    if ! result=$(load "$@"); then
        echo "compare: $server, pool of $pool, $cell: no result" >&2
        failures=$((failures + 1))
        return 0
    fi
    printf '{"server":"%s","pool":%d,"round":%d,"cell":"%s","result":%s}\n' \
        "$server" "$pool" "$round" "$cell" "$result" >>"$records"
}

measure() {
    local server=$1 pool=$2 round=$3 window
    local each=(--clients "$pool" --milliseconds "$milliseconds")
    prepare "$server" "$pool"
    record "$server" "$pool" "$round" start start --network "$serving" --patience 60000 -- "${command[@]}"
    prepare "$server" "$pool"
    ip netns exec "$serving" "${command[@]}" </dev/null >/dev/null 2>>"$work/$server.errors" &
    server_pid=$!
    if ! load start --patience 60000 >/dev/null; then
        echo "compare: $server, pool of $pool: does not answer" >&2
        failures=$((failures + 1))
        end_server
        return 0
    fi
    for window in 1 64; do
        record "$server" "$pool" "$round" "offers-$window" offers --window "$window" "${each[@]}"
    done
    for window in 1 16 64; do
        record "$server" "$pool" "$round" "handshakes-$window" handshakes --window "$window" --pid "$server_pid" "${each[@]}"
    done
    if [ "$pool" -eq "$flood_pool" ] && [[ $server != replace && $server != drain ]]; then
        for rate in 5000 0; do
            record "$server" "$pool" "$round" "flood-$rate" flood --rate "$rate" --milliseconds "$flood_milliseconds"
        done
    fi
    end_server
}

failures=0
flood_pool=${pools%% *}
servers=(kea tarnwick dnsmasq echo replace drain)
for round in $(seq "$rounds"); do
    for pool in $pools; do
        for server in "${servers[@]}"; do
            # One file written anew at every answer makes the largest pool an hour's work for nothing.
            [ "$server" = dnsmasq ] && [ "$pool" -gt 10000 ] && continue
            echo "compare: round $round, pool of $pool, $server (${SECONDS}s)" >&2
            measure "$server" "$pool" "$round"
        done
    done
done

mv "$records" "$out/records.jsonl"
"$tools/dhcp-report" --records "$out/records.jsonl" --plot "$out/plot.svg" | tee "$out/report.md"
cat "$work"/*.errors | head -20 >&2
if [ "$failures" -gt 0 ]; then
    echo "compare: $failures measurements failed" >&2
    exit 1
fi
if [ "$smoke" = yes ]; then
    echo "compare: everything ran; figures of so short a run mean nothing" >&2
fi
