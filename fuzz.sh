#!/usr/bin/env bash
# Installs what is missing, builds, replays the corpora and fuzzes each target for so many seconds, two targets at a
# time; `./fuzz.sh 1800` fuzzes each for half an hour.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"

scripts/setup build check
scripts/fuzz "${1:-60}"
