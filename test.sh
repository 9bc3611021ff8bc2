#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test. Arguments go to ctest, as in `./test.sh -R Lease`.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"

scripts/setup build test
scripts/build release -DTARNWICK_TESTS=ON -DTARNWICK_BENCHMARKS=ON
ctest --preset release "$@"
