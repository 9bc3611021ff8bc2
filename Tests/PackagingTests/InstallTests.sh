#!/usr/bin/env bash
# What `cmake --install` puts into a folder.
source "$(dirname "$0")/Support.sh"

install_into() { cmake --install "$build_dir" --prefix "$1" "${@:2}" >"$scratch/install.log" || fail "$(cat "$scratch/install.log")"; }

files_below() { (cd "$1" && find . -type f -printf '%P\n' | LC_ALL=C sort); }

InstallsTheToolAndItsCompanions() {
    need_pages
    install_into "$scratch/prefix" --component tool
    install_into "$scratch/prefix" --component tool-local
    expect_equal "files of the tool" "bin/tarnwick
sbin/networksetup
share/bash-completion/completions/tarnwick
share/fish/vendor_completions.d/tarnwick.fish
share/man/man5/leases.json.5
share/man/man8/networksetup.8
share/man/man8/tarnwick.8
share/tarnwick/events.schema.json
share/tarnwick/leases.schema.json
share/zsh/site-functions/_tarnwick" "$(files_below "$scratch/prefix")"
    expect_equal "version" "tarnwick $(sed -n 's/.* version = "\(.*\)";/\1/p' "$source_dir/Sources/DHCPCore/DHCPCore.hpp")" \
        "$("$scratch/prefix/bin/tarnwick" --version)"
}

InstallsEveryPortableHeaderAndNoOther() {
    install_into "$scratch/prefix" --component library
    expect_equal "headers" "$(cd "$source_dir/Sources" && printf '%s\n' DHCPCore/*.hpp)" \
        "$(cd "$scratch/prefix/include" && find . -type f -printf '%P\n' | LC_ALL=C sort)"
}

AConsumerFindsBuildsAndRunsTheInstalledLibrary() {
    install_into "$scratch/prefix" --component library
    cmake -S "$scratch/prefix/share/doc/dhcpcore/examples" -B "$scratch/examples" -G Ninja --log-level=WARNING \
        -DCMAKE_PREFIX_PATH="$scratch/prefix" -DCMAKE_CXX_COMPILER_LAUNCHER="$(command -v ccache || true)" >"$scratch/log"
    cmake --build "$scratch/examples" >"$scratch/log" 2>&1 || fail "$(cat "$scratch/log")"
    local said status=0
    said=$("$scratch/examples/device" --help 2>&1) || status=$?
    expect_equal "what the example says" "usage: device [--port 6767] [--client-port 6868]" "$said"
    expect_equal "its exit status" 2 "$status"
}

AConsumerOfAnotherMinorVersionIsRefused() {
    install_into "$scratch/prefix" --component library
    mkdir "$scratch/consumer"
    printf '%s\n' 'cmake_minimum_required(VERSION 3.25)' 'project(Consumer LANGUAGES CXX)' \
        'find_package(DHCPCore 0.1 REQUIRED)' >"$scratch/consumer/CMakeLists.txt"
    if cmake -S "$scratch/consumer" -B "$scratch/consumer/build" -DCMAKE_PREFIX_PATH="$scratch/prefix" \
        >"$scratch/log" 2>&1; then
        fail "version 0.1 was found"
    fi
    grep -q 'compatible with requested version "0.1"' "$scratch/log" || fail "$(cat "$scratch/log")"
}

"$@"
