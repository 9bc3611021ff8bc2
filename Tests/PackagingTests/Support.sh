# What the tests in these shell files share. Each file is a suite: its functions whose names begin with a capital letter
# are the tests, and it is run with the name of one of them. A test fails at its first failing command.
set -euo pipefail

source_dir=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
build_dir=${TARNWICK_BUILD_DIR:?the folder of the build that is tested}

scratch=$(mktemp -d)
finish() {
    local status=$?
    kill $(jobs -p) 2>/dev/null || true
    rm -rf "$scratch"
    exit "$status"
}
trap finish EXIT

fail() {
    echo "FAILED: $*" >&2
    exit 1
}

# Ends the test as skipped, in the eyes of ctest.
skip() {
    echo "skipped: $*"
    exit 77
}

# Skips the test where one of the programs is missing; scripts/setup package brings them.
need() {
    local program
    for program in "$@"; do
        command -v "$program" >/dev/null || skip "$program is not installed"
    done
}

need_pages() { [ -e "$build_dir/manual/tarnwick.8" ] || skip "scdoc was not there when this was built"; }

# Compares two texts, whole.
expect_equal() {
    local what=$1 expected=$2 actual=$3
    [ "$expected" = "$actual" ] && return
    diff <(echo "$expected") <(echo "$actual") >&2 || true
    fail "$what"
}

expect_empty() { expect_equal "$1" "" "$2"; }

# Waits until a command succeeds, for at most ten seconds.
eventually() {
    local deadline=$((SECONDS + 10))
    until "$@"; do
        [ "$SECONDS" -lt "$deadline" ] || fail "in vain: $*"
        sleep 0.05
    done
}
