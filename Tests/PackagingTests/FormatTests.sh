#!/usr/bin/env bash
# The two JSON formats, held to their schemas.
source "$(dirname "$0")/Support.sh"

events_schema=$source_dir/docs/events.schema.json
leases_schema=$source_dir/docs/leases.schema.json

need_validator() { python3 -c 'import jsonschema' 2>/dev/null || skip "python3-jsonschema is not installed"; }

validate() { python3 "$source_dir/Tests/PackagingTests/validate" "$@"; }

expect_refused() {
    local what=$1
    shift
    if validate "$@" >"$scratch/refusal"; then
        fail "$what was taken as valid"
    fi
}

make_samples() { "$build_dir/Tests/PackagingTests/EventSamples" "$scratch/leases.json" >"$scratch/events"; }

# One run of the tool on loopback ports of its own, while the demonstration device comes and goes.
record_a_run() {
    local server port=$((20000 + 2 * ($$ % 10000)))
    "$build_dir/tarnwick" serve --test-loopback --json --leases "$scratch/leases.json" \
        --port "$port" --client-port $((port + 1)) >"$scratch/events" &
    server=$!
    eventually grep -q '"event":"started"' "$scratch/events"
    # Not DHCP at all, and too short for it.
    printf 'hello' >"/dev/udp/127.0.0.1/$port"
    "$build_dir/device" --port "$port" --client-port $((port + 1)) 2>"$scratch/device"
    eventually grep -q '"state":"released"' "$scratch/events"
    kill -INT "$server"
    wait "$server"
}

EveryEventOfARunIsAsItsSchemaSays() {
    need_validator
    record_a_run
    local count
    count=$(wc -l <"$scratch/events")
    expect_equal "events of a run" "$count valid" "$(validate --lines "$events_schema" "$scratch/events")"
    expect_equal "kinds" "dropped leaseChanged received sent started stopped" \
        "$(sed 's/.*"event":"\([A-Za-z]*\)".*/\1/' "$scratch/events" | LC_ALL=C sort -u | xargs)"
}

TheLeaseFileOfARunIsAsItsSchemaSays() {
    need_validator
    record_a_run
    expect_equal "lease file of a run" "1 valid" "$(validate "$leases_schema" "$scratch/leases.json")"
}

EveryKindOfEventIsAsItsSchemaSays() {
    need_validator
    make_samples
    local count
    count=$(wc -l <"$scratch/events")
    expect_equal "all events" "$count valid" "$(validate --lines "$events_schema" "$scratch/events")"
    expect_equal "kinds of the schema" \
        "$(python3 -c 'import json, sys; print(*sorted(json.load(open(sys.argv[1]))["properties"]["event"]["enum"]))' "$events_schema")" \
        "$(sed 's/.*"event":"\([A-Za-z]*\)".*/\1/' "$scratch/events" | LC_ALL=C sort -u | xargs)"
}

EveryKindOfLeaseRecordIsAsItsSchemaSays() {
    need_validator
    make_samples
    expect_equal "lease file" "1 valid" "$(validate "$leases_schema" "$scratch/leases.json")"
}

TheSchemasRefuseWhatIsDamaged() {
    need_validator
    make_samples
    local damage
    for damage in 's/"xid":"[^"]*"//; s/,,/,/; s/,}/}/' 's/"event":"sent"/"event":"info"/' 's/"state":"bound"/"state":"lost"/' \
        's/09:00:00Z/09:00:00/' 's/"label":"START"/"label":1/' 's/"label":"STOP"/"label":"STOP","more":""/'; do
        sed "$damage" "$scratch/events" >"$scratch/damaged"
        cmp -s "$scratch/events" "$scratch/damaged" && fail "$damage changes nothing"
        expect_refused "$damage" --lines "$events_schema" "$scratch/damaged"
    done
    for damage in 's/"version": 1/"version": 2/' '0,/"mac"/s//"MAC"/' 's/"bound"/"lost"/' 's/09:00:00Z/09:00:00.5Z/'; do
        sed "$damage" "$scratch/leases.json" >"$scratch/damaged"
        cmp -s "$scratch/leases.json" "$scratch/damaged" && fail "$damage changes nothing"
        expect_refused "$damage" "$leases_schema" "$scratch/damaged"
    done
}

"$@"
