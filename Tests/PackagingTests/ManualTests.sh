#!/usr/bin/env bash
# The manual pages: they render, and they say what the programs do.
source "$(dirname "$0")/Support.sh"

pages=$build_dir/manual
tool=$build_dir/tarnwick

# A page as plain text, each paragraph on one line.
plain() { MANWIDTH=2000 man --nh --nj -E UTF-8 -l "$pages/$1" 2>/dev/null; }

renders() {
    need_pages
    need man mandoc groff
    expect_empty "what man says" "$(MANWIDTH=80 man --warnings -E UTF-8 -l "$pages/$1" 2>&1 >/dev/null)"
    expect_empty "what groff says" "$(groff -K utf8 -ww -b -z -man -T utf8 "$pages/$1" 2>&1)"
    expect_empty "what mandoc says" "$(mandoc -T lint -W warning "$pages/$1" 2>&1)"
}

TheToolsPageRendersWithoutWarnings() { renders tarnwick.8; }
TheCompanionsPageRendersWithoutWarnings() { renders networksetup.8; }
TheLeaseFilesPageRendersWithoutWarnings() { renders leases.json.5; }

options_in_source() { sed -nE 's/^ *(Flag|ValueOption)\{"(--[a-z-]+)".*/\2/p' "$source_dir/Sources/tarnwick/CommandLine.cpp"; }

TheOptionsOfThePageAreThoseOfTheTool() {
    local documented accepted
    documented=$(sed -n '/^# OPTIONS/,/^# CHECKS/s/^\*\(--[a-z-]*\)\*.*/\1/p' "$source_dir/docs/manual/tarnwick.8.scd" | LC_ALL=C sort)
    accepted=$( (options_in_source; echo --version) | LC_ALL=C sort)
    expect_equal "options" "$accepted" "$documented"
    expect_equal "options of the usage text" "$accepted" "$("$tool" | grep -oE -- '--[a-z-]+' | LC_ALL=C sort -u)"
}

TheToolAcceptsEveryOptionOfThePage() {
    local option said
    while read -r option; do
        # The loopback mode keeps it from looking at cards, and the missing value or the last word from serving.
        said=$("$tool" serve --test-loopback "$option" --no-such-option --no-such-option 2>&1 || true)
        [[ $said != "tarnwick: unknown option $option"* ]] || fail "$option is unknown"
    done < <(sed -n '/^# OPTIONS/,/^# CHECKS/s/^\*\(--[a-z-]*\)\*.*/\1/p' "$source_dir/docs/manual/tarnwick.8.scd" |
        grep -vx -- --version)
}

TheSynopsisNamesEveryOption() {
    expect_equal "options" "$( (options_in_source; echo --version) | LC_ALL=C sort)" \
        "$(sed -n '/^# SYNOPSIS/,/^# DESCRIPTION/p' "$source_dir/docs/manual/tarnwick.8.scd" |
            grep -oE -- '--[a-z-]+' | LC_ALL=C sort -u)"
}

TheVerbsOfTheCompanionsPageAreThoseOfTheCompanion() {
    expect_equal "verbs" "$(sed -nE 's/.*verb == "(-[a-z-]+)".*/\1/p' "$source_dir/Sources/networksetup/Request.cpp" | LC_ALL=C sort)" \
        "$(sed -n '/^# OPTIONS/,/^# EXIT/s/^\*\(-[a-z-]*\)\*.*/\1/p' "$source_dir/docs/manual/networksetup.8.scd" | LC_ALL=C sort)"
}

EverySentenceOfTheServerIsExplained() {
    need_pages
    need man python3
    plain tarnwick.8 >"$scratch/page"
    # A word for a program without a name, and two names of types in errors of the library.
    expect_equal "sentences that the page does not show" "another program
notice kind
DHCP message type" "$(cd "$source_dir/Sources/DHCPCore" && python3 "$source_dir/Tests/PackagingTests/unexplained" \
        "$scratch/page" Responder.cpp Server.cpp ServerWatch.cpp LocalNetwork.cpp Preflight.cpp Events.cpp Packet.cpp)"
}

EveryKindAndKeyOfAnEventIsExplained() {
    need jq
    local word missing=""
    while read -r word; do
        grep -qF "*$word*" "$source_dir/docs/manual/tarnwick.8.scd" || missing+=" $word"
    done < <(jq -r '.properties.event.enum[], (.oneOf[].properties | keys[]), (.properties | keys[])' "$source_dir/docs/events.schema.json")
    expect_empty "kinds and keys that the page does not show" "$missing"
}

EveryKeyOfTheLeaseFileIsExplained() {
    need jq
    expect_equal "keys" \
        "$(jq -r '(.properties, ."$defs".lease.properties, ."$defs".quarantine.properties) | keys[]' \
            "$source_dir/docs/leases.schema.json" | LC_ALL=C sort -u)" \
        "$(sed -n '/^# FORMAT/,/^# FILES/p' "$source_dir/docs/manual/leases.json.5.scd" |
            grep -E '^	*\*[a-zA-Z]+\*(, \*|$)' | grep -oE '\*[a-zA-Z]+\*' | tr -d '*' | LC_ALL=C sort -u)"
}

# The N-th example of a page that runs jq, with files of ours.
example() {
    awk '/^```/ { if (inside && text ~ /jq /) print text "\n---"; inside = !inside; text = ""; next }
        inside { text = text (text ? "\n" : "") $0 }' "$source_dir/docs/manual/$1.scd" | sed 's/\\\\/\\/g' |
        awk -v RS='\n---\n' -v wanted="$2" 'NR == wanted' |
        sed -e "s#tarnwick serve --iface enp3s0 --json#cat $scratch/events#" -e "s#~/.local/share/Tarnwick/leases.json#$scratch/leases.json#" \
            -e "s# events # $scratch/events #" -e "s# leases.json # $scratch/leases.json #" -e 's# > new.*##'
}

run_example() { bash -c "$(example "$@")" || fail "example $2 of $1: $(example "$@")"; }

make_samples() {
    "$build_dir/Tests/PackagingTests/EventSamples" "$scratch/leases.json" >"$scratch/samples"
    (echo "✓ Port 67 is free"; cat "$scratch/samples") >"$scratch/events"
}

TheExamplesWithEventsDoWhatThePageSays() {
    need jq
    make_samples
    expect_equal "devices as they get addresses" "02:00:5e:10:00:02 192.168.0.100
02:00:5e:10:00:03 192.168.0.100" "$(run_example tarnwick.8 1)"
    expect_equal "the first bound device" "192.168.0.100" "$(run_example tarnwick.8 2)"
    mv "$scratch/samples" "$scratch/events"
    expect_equal "vendor classes" "8 slash/back\\" "$(run_example tarnwick.8 3 | sed 's/^ *//')"
    expect_empty "a fourth example" "$(example tarnwick.8 4)"
}

TheExamplesWithTheLeaseFileDoWhatThePageSays() {
    need jq
    make_samples
    sed -i -e "s/a \\\\\"quoted[^,]*,/demo-device\",/" -e 's/"expiresAt": "2025/"expiresAt": "2999/' "$scratch/leases.json"
    expect_equal "address by name" "192.168.0.100 192.168.0.100 192.168.0.100 192.168.0.100" "$(run_example leases.json.5 1 | xargs)"
    expect_equal "who has an address" "192.168.0.100 02:00:5e:10:00:02 -
192.168.0.100 02:00:5e:10:00:03 demo-device" "$(run_example leases.json.5 2)"
    sed -i 's/02:00:5e:10:00:00/02:00:5e:10:00:09/; s/02:00:5e:10:00:03/02:00:5e:10:00:01/' "$scratch/leases.json"
    expect_equal "records that are left" 6 "$(run_example leases.json.5 3 | jq '.leases | length')"
    expect_empty "a fourth example" "$(example leases.json.5 4)"
}

TheLeaseFileOfThePageIsOneThatTheServerReads() {
    local server port=$((20000 + 2 * ($$ % 10000)))
    sed -n '/^```/,/^```/p' "$source_dir/docs/manual/leases.json.5.scd" | sed -n '2,/^```/p' | grep -v '^```' |
        sed 's/"expiresAt": "2025/"expiresAt": "2999/' >"$scratch/leases.json"
    "$tool" serve --test-loopback --leases "$scratch/leases.json" --port "$port" --client-port $((port + 1)) >"$scratch/events" &
    server=$!
    eventually grep -q LEASE "$scratch/events"
    kill -INT "$server"
    wait "$server"
    expect_equal "lease" "bound 192.168.0.100 02:00:5e:10:00:01 host=demo-device" \
        "$(sed -n 's/.*  LEASE *//p' "$scratch/events")"
}

"$@"
