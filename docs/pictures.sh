#!/usr/bin/env bash
# Makes the pictures of README.md and docs/ anew: needs a build, and the packages of
# tests/trace/packages.txt.
set -euo pipefail
cd "$(dirname "$0")/.."
holder=$(mktemp -d)
trap 'rm -rf "$holder"' EXIT

# shoot PAGE PICTURE WIDTH HEIGHT
shoot() {
    chromium-headless-shell --no-sandbox --disable-gpu --hide-scrollbars --window-size="$3,$4" \
        --screenshot="$PWD/docs/$2" "file://$1" 2>/dev/null
    echo "docs/$2"
}

./run.sh --report "$holder/power-walk.html" --no-dump power-walk
shoot "$holder/power-walk.html" report.png 1280 780
