#!/usr/bin/env bash
# How many of SmartIR's air-conditioner codes decode as a climate family now:
# every codes/climate/*.json of a SmartIR checkout (or bare clone) through
# the decoders. Reports figures; never fails on them.
#
#   bench/climate/smartir-coverage.sh SMARTIR_GIT_DIR [BUILD_DIR]   (default: build)
set -euo pipefail
cd "$(dirname "$0")/../.."
repo=${1:?a SmartIR checkout or bare clone}
build=${2:-build}
tool=$build/bench/kestrava_climate_coverage
[ -x "$tool" ] || { echo "build first: cmake --build $build --target kestrava_climate_coverage"; exit 2; }

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
for f in $(git -C "$repo" ls-tree --name-only HEAD codes/climate/); do
    case $f in *.json) git -C "$repo" show "HEAD:$f" >"$work/$(basename "$f")" ;; esac
done
echo "SmartIR $(git -C "$repo" rev-parse --short HEAD): $(ls "$work" | wc -l) climate files"
"$tool" "$work"/*.json
