#!/usr/bin/env bash
# Installs what is missing, builds, and runs zorhost inspect over the sample terrain set.
# Extra arguments go to zorhost inspect (e.g. --json, or paths of your own files).
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh
generator=()
command -v ninja >/dev/null && generator=(-G Ninja)
cmake -S . -B build "${generator[@]}" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j "$(nproc)" --target zorhost zorTerrain >/dev/null
exec build/tools/zorhost/zorhost inspect "$@"
