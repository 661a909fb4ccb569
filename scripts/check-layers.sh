#!/usr/bin/env bash
# zorhost's layers use only those below them: no file of the core (or of the outputs,
# the MetaFlight module, the map or the view) includes a header of a front end (cli/,
# python/), and each layer includes only its own headers and its lower layers'. Prints
# each breach; fails when there is one.
set -euo pipefail
cd "$(dirname "$0")/../tools/zorhost"

declare -A allowed=(
  [outputs]="outputs"
  [metaflight]="metaflight outputs"
  [core]="core metaflight outputs"
  [map]="map core metaflight outputs"
  [view]="view map core metaflight outputs"
)
layer_of() {  # the folder holding a header of ours, or nothing
  for folder in outputs metaflight core map view cli python; do
    [[ -f "$folder/$1" ]] && { echo "$folder"; return; }
  done
}
breaches=0
for layer in "${!allowed[@]}"; do
  for file in "$layer"/*.h "$layer"/*.cpp; do
    [[ -f "$file" ]] || continue
    while read -r header; do
      owner=$(layer_of "$header")
      [[ -z "$owner" ]] && continue  # the host's, the plug-in's or a library's
      if [[ " ${allowed[$layer]} " != *" $owner "* ]]; then
        echo "tools/zorhost/$file includes $owner/$header: $layer may use only ${allowed[$layer]}"
        breaches=$((breaches + 1))
      fi
    done < <(sed -n 's/^#include "\([^"/]*\)".*/\1/p' "$file")
  done
done
if ((breaches > 0)); then
  exit 1
fi
echo "layers: each uses only those below it"
