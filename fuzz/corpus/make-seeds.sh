#!/usr/bin/env bash
# Writes the seeds of fuzz_vector_load, fuzz_elevation and fuzz_scene_text with GDAL's
# own tools (ogr2ogr, gdal_translate) from small texts written here and the sample set:
#   bash fuzz/corpus/make-seeds.sh        (from the repository's root)
# Each seed is named after what it exercises; see fuzz/corpus/README.md.
set -euo pipefail
cd "$(dirname "$0")"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# ---- vector_load: byte 0 even, then GeoJSON; or odd, two 16-bit lengths, a .prj choice
# (0 none, 1 WGS84, 2 UTM 32N, 3 UTM 33S, 4 Paris Lambert II), then .shp .shx .dbf.
geojson() { printf '\x00' > "vector_load/$1"; cat >> "vector_load/$1"; }
triple() {  # name, prj choice, path of a .shp
  python3 - "$1" "$2" "$3" <<'PY'
import sys, os
name, prj, shp = sys.argv[1], int(sys.argv[2]), sys.argv[3]
base = shp[:-4]
parts = [open(base + e, 'rb').read() for e in ('.shp', '.shx', '.dbf')]
head = bytes([1]) + len(parts[0]).to_bytes(2, 'little') + len(parts[1]).to_bytes(2, 'little') + bytes([prj])
open('vector_load/' + name, 'wb').write(head + b''.join(parts))
PY
}
mkdir -p vector_load elevation scene_text
geojson southern-points.geojson <<'J'
{"type":"FeatureCollection","features":[
{"type":"Feature","id":1,"properties":{"ECC":"EC030","AOO":45},"geometry":{"type":"Point","coordinates":[15,-10]}},
{"type":"Feature","id":2,"properties":{"ECC":"EC030","AOO":730},"geometry":{"type":"Point","coordinates":[14.9,0.2]}}]}
J
geojson latitude-91.geojson <<'J'
{"type":"FeatureCollection","features":[
{"type":"Feature","id":1,"properties":{"ECC":"EC030"},"geometry":{"type":"Point","coordinates":[9,91]}},
{"type":"Feature","id":2,"properties":{"ECC":"AP030"},"geometry":{"type":"LineString","coordinates":[[9,45],[9,95]]}}]}
J
geojson swapped-axes.geojson <<'J'
{"type":"FeatureCollection","features":[
{"type":"Feature","properties":{"ECC":"AL015","HGT":9.5},"geometry":{"type":"Point","coordinates":[45.5,120.25]}}]}
J
geojson odd-ids-nulls-nesting.geojson <<'J'
{"type":"FeatureCollection","features":[
{"type":"Feature","id":8589934592,"properties":{"ECC":null,"F_CODE":"AL015","WID":"wide","AOO":1e308,"n":[1,2],"b":true,"d":"2024-01-02"},"geometry":{"type":"Point","coordinates":[9,45,1e30]}},
{"type":"Feature","id":-5,"properties":null,"geometry":null},
{"type":"Feature","properties":{"FCODE":"B"},"geometry":{"type":"GeometryCollection","geometries":[{"type":"MultiPolygon","coordinates":[[[[9,45],[9.1,45],[9.1,45.1],[9,45]],[[9.02,45.02],[9.03,45.02],[9.03,45.03],[9.02,45.02]]]]},{"type":"MultiPoint","coordinates":[]},{"type":"LineString","coordinates":[]}]}}]}
J
# A shapefile of points, one of a whole country's extent in zone 32 (Otranto lies at an
# easting of 1,310 km), and an attribute table (a shapefile without shapes).
printf 'x,y,ECC\n500100,5039900,AL015\n1310360.06,4482347.37,EC030\n' > "$work/italy.csv"
ogr2ogr -q -f "ESRI Shapefile" "$work/italy.shp" "$work/italy.csv" -oo X_POSSIBLE_NAMES=x \
  -oo Y_POSSIBLE_NAMES=y -a_srs EPSG:32632
triple country-wide-utm32.shp-triple 2 "$work/italy.shp"
printf 'name,ECC\nmill,AL015\n' > "$work/table.csv"
ogr2ogr -q -f "ESRI Shapefile" "$work/table.shp" "$work/table.csv" -nlt NONE
touch "$work/table.shp" "$work/table.shx"
triple attribute-table.shp-triple 0 "$work/table.shp"
triple valley-points.shp-triple 2 ../../data/sample/valley_points.shp

# ---- elevation: byte 0 is 0 (AAIGrid, WGS84), 1 (AAIGrid, UTM 32N), 2 (GeoTIFF), 3 (DTED).
seed() { printf "\\x0$2" > "elevation/$1"; cat "$3" >> "elevation/$1"; }
printf 'ncols 3\nnrows 3\nxllcorner 8.5\nyllcorner 44.5\ncellsize 0.5\nNODATA_value -9999.9\n1 2 3\n4 -9999.9 6\n7 8 9\n' > "$work/hole.asc"
gdal_translate -q -ot Float64 -a_srs EPSG:4326 "$work/hole.asc" "$work/float64-nodata.tif"
seed float64-nodata.tif 2 "$work/float64-nodata.tif"
printf 'ncols 2\nnrows 2\nxllcorner 9\nyllcorner 45\ncellsize 0.5\n8848 100\n200 300\n' > "$work/dm.asc"
gdal_translate -q -ot Int16 -a_srs EPSG:4326 -a_scale 0.1 -a_offset -2 "$work/dm.asc" "$work/dm.tif"
seed decimetres-scale.tif 2 "$work/dm.tif"
{ printf 'ncols 36\nnrows 2\nxllcorner 0\nyllcorner -10\ncellsize 10\n'
  seq 0 10 350 | tr '\n' ' '; echo; seq 0 10 350 | tr '\n' ' '; echo; } > "$work/global.asc"
seed global-0-360.asc 0 "$work/global.asc"
printf 'ncols 3\nnrows 2\nxllcorner 500000\nyllcorner 5000000\ncellsize 30\n10 20 30\n40 50 60\n' > "$work/utm.asc"
seed utm32-grid.asc 1 "$work/utm.asc"
seed n45_e009.dt0 3 ../../data/sample/n45_e009.dt0

# ---- scene_text: TYPE:PARAMETERS.
scene() { printf '%s' "$2" > "scene_text/$1"; }
scene utm32n.txt "UTM:45,9,32,32,N,0,0,0,0,0"
scene southern.txt "UTM:0,15,33,33,S,0,0,0,1,0"
scene false-origin.txt "UTM:0,15,33,33,S,498000,8894000,25,1,0"
scene negative-zone.txt "UTM:0.25,15,-33,33,S,0,0,0,0,0"
scene nan-origin-ups.txt "UTM:nan,nan,0,0,N,0,0,0,0,0"
scene lambert-paris.txt "Lambert:46.8,2.33722917,47.696014502107,45.898918964343"
scene flat-earth.txt "FlatEarth:45,9"
scene flat-earth-dted.txt "Flat Earth:45.5,9.5"
scene geocentric.txt "Geocentric:WGS84"
