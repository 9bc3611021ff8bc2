#!/usr/bin/env bash
# The Debian packages. scripts/check-package goes further: it installs them in a root of their own.
source "$(dirname "$0")/Support.sh"

version=$(sed -n 's/.* version = "\(.*\)";/\1/p' "$source_dir/Sources/DHCPCore/DHCPCore.hpp")

# Packs what is built, below that folder of the scratch one.
pack() {
    need_pages
    need dpkg-deb dpkg-shlibdeps
    SOURCE_DATE_EPOCH=$("$source_dir/scripts/release-time") cpack --config "$build_dir/CPackConfig.cmake" \
        -B "$scratch/$1" >"$scratch/cpack.log" 2>&1 || fail "$(cat "$scratch/cpack.log")"
    rm -rf "${scratch:?}/$1/_CPack_Packages"
}

deb() { echo "$scratch/packages/$1_${version}_$(dpkg --print-architecture).deb"; }

LintianMindsNothing() {
    need lintian
    pack packages
    expect_empty "what lintian minds" "$(lintian --allow-root --fail-on none --tag-display-limit 0 \
        "$(deb tarnwick)" "$(deb libdhcpcore-dev)" 2>&1)"
}

TheToolsPackageHoldsItsFilesOwnedByRoot() {
    pack packages
    expect_equal "files" "-rwxr-xr-x root/root ./usr/bin/tarnwick
-rwxr-xr-x root/root ./usr/sbin/networksetup
-rw-r--r-- root/root ./usr/share/bash-completion/completions/tarnwick
-rw-r--r-- root/root ./usr/share/doc/tarnwick/changelog.gz
-rw-r--r-- root/root ./usr/share/doc/tarnwick/copyright
-rw-r--r-- root/root ./usr/share/fish/vendor_completions.d/tarnwick.fish
-rw-r--r-- root/root ./usr/share/man/man5/leases.json.5.gz
-rw-r--r-- root/root ./usr/share/man/man8/networksetup.8.gz
-rw-r--r-- root/root ./usr/share/man/man8/tarnwick.8.gz
-rw-r--r-- root/root ./usr/share/tarnwick/events.schema.json
-rw-r--r-- root/root ./usr/share/tarnwick/leases.schema.json
-rw-r--r-- root/root ./usr/share/zsh/vendor-completions/_tarnwick" \
        "$(dpkg-deb -c "$(deb tarnwick)" | grep -v '^d' | awk '{ print $1, $2, $6 }' | LC_ALL=C sort -k 3)"
}

AConsumerBuildsOnTheLibrarysPackage() {
    pack packages
    dpkg-deb -x "$(deb libdhcpcore-dev)" "$scratch/root"
    cmake -S "$scratch/root/usr/share/doc/dhcpcore/examples" -B "$scratch/examples" -G Ninja --log-level=WARNING \
        -DCMAKE_PREFIX_PATH="$scratch/root/usr" -DCMAKE_CXX_COMPILER_LAUNCHER="$(command -v ccache || true)" >"$scratch/log"
    cmake --build "$scratch/examples" --target device >"$scratch/log" 2>&1 || fail "$(cat "$scratch/log")"
    expect_equal "what the example says" "usage: device [--port 6767] [--client-port 6868]" \
        "$("$scratch/examples/device" --help 2>&1 || true)"
}

TwoPackagesOfOneTreeAreTheSameBytes() {
    pack packages
    pack again
    diff -r "$scratch/packages" "$scratch/again"
}

# By scripts/install-networksetup, which ./run.sh calls when root runs it.
TheBuiltCompanionNeverReplacesThePackagedOne() {
    [ "$(id -u)" -eq 0 ] || skip "only root installs"
    mkdir "$scratch/bin"
    printf '#!/bin/sh\necho tarnwick networksetup 0.0.1\n' >"$scratch/networksetup"
    printf '#!/bin/sh\n[ "$*" = "-S %s" ]\n' "$scratch/networksetup" >"$scratch/bin/dpkg-query"
    chmod +x "$scratch/networksetup" "$scratch/bin/dpkg-query"
    cp "$scratch/networksetup" "$scratch/before"
    local said status=0
    said=$(PATH=$scratch/bin:$PATH "$source_dir/scripts/install-networksetup" "$build_dir/networksetup" \
        "$scratch/networksetup" 2>&1) || status=$?
    expect_equal "what it says" "install-networksetup: $scratch/networksetup belongs to an installed package and stays as it is" \
        "$said"
    expect_equal "exit status" 1 "$status"
    cmp "$scratch/before" "$scratch/networksetup"
}

"$@"
