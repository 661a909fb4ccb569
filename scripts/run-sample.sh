#!/usr/bin/env bash
# Installs what is missing, builds, and runs zorhost inspect over the sample terrain set.
# Extra arguments go to zorhost inspect (e.g. --json, or paths of your own files).
# With --map instead, draws the sample set into docs/sample-map.png (the README's picture);
# with --view, renders it in 3-D into docs/sample-view.png (under xvfb-run where there is
# no display).
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh
generator=()
command -v ninja >/dev/null && generator=(-G Ninja)
cmake -S . -B build "${generator[@]}" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j "$(nproc)" --target zorhost zorTerrain >/dev/null
zorhost=build/tools/zorhost/zorhost

if [[ "${1:-}" == "--map" ]]; then
  s=data/sample
  exec "$zorhost" map docs/sample-map.png --overwrite --size 640x640 \
    --title "data/sample: the valley" \
    --terrain $s/n45_e009.dt0 \
    --features $s/valley.gdb \
    --props $s/valley_points.shp --rules $s/valley_props.json \
    --tiles $s/metaflight/valley_tiles.mft --dataset Terrain --level 1
fi
if [[ "${1:-}" == "--view" ]]; then
  s=data/sample
  onDisplay=()
  [[ -n "${DISPLAY:-}" ]] || onDisplay=(xvfb-run -a -s "-screen 0 1280x1024x24")
  exec "${onDisplay[@]}" "$zorhost" view --png docs/sample-view.png --overwrite --size 800x600 \
    --terrain $s/n45_e009.dt0 \
    --features $s/valley.gdb \
    --props $s/valley_points.shp --rules $s/valley_props.json \
    --tiles $s/metaflight/valley_tiles.mft --dataset Terrain --level 1
fi
exec "$zorhost" inspect "$@"
