#!/usr/bin/env bash
# Without arguments: serves on loopback while a demonstration device gets, renews and releases an address.
# With arguments: runs `tarnwick` with them. Everything but the tool's own output goes to standard error.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)

{
    "$root/scripts/setup" build
    # The tests are not needed here, so their libraries are not either.
    "$root/scripts/build" release -DTARNWICK_TESTS=OFF -DTARNWICK_BENCHMARKS=OFF
    # What tarnwick prints for a card that is not set up is to work; it serves all the same where it does not.
    if [ "$(uname)" = Linux ] && [ "$(id -u)" -eq 0 ]; then
        "$root/scripts/install-networksetup" || true
    fi
} >&2

if [ $# -gt 0 ]; then
    exec "$root/build/release/tarnwick" "$@"
fi

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
trap : INT # Ctrl-C is for the server; this script ends after it

echo "run.sh: leases in $scratch/leases.json, Ctrl-C stops" >&2
"$root/build/release/device" &
device=$!
status=0
"$root/build/release/tarnwick" serve --test-loopback --leases "$scratch/leases.json" || status=$?
kill "$device" 2>/dev/null || true
wait "$device" 2>/dev/null || true
exit "$status"
