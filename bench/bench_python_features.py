#!/usr/bin/env python3
"""zorterrain's features(..., arrays=True) on 1,000,000 points (ZOR_BENCH_POINTS) against
GDAL's Python bindings reading the same shapefile into numpy arrays (GetArrowStreamAsNumPy
where GDAL has it, else the feature loop), each in a fresh interpreter, three rounds;
then each one's peak memory. Prints the ratios; goals: time within 1, memory within 2.

    PYTHONPATH=build/python python3 bench/bench_python_features.py
ZOR_BENCH_DIR=DIR keeps the shapefile in DIR."""
import os
import shutil
import subprocess
import sys
import tempfile
import time

COUNT = int(os.environ.get("ZOR_BENCH_POINTS", "1000000"))

OURS = """
import sys, zorterrain
xyz, fid, facc = zorterrain.Engine().features(sys.argv[1], arrays=True)
assert len(fid) == int(sys.argv[2])
"""

PEER = """
import sys, numpy
from osgeo import ogr
ogr.UseExceptions()
dataset = ogr.Open(sys.argv[1])  # held: its layers die with it
layer = dataset.GetLayer(0)
if hasattr(layer, "GetArrowStreamAsNumPy"):
    xs, ys, fids, codes = [], [], [], []
    for batch in layer.GetArrowStreamAsNumPy(options=["USE_MASKED_ARRAYS=NO"]):
        fids.append(batch["OGC_FID"])
        codes.append(batch["ECC"])
        # A 2-D point's WKB is 21 bytes: order, type, x, y.
        wkb = numpy.frombuffer(b"".join(batch["wkb_geometry"]), dtype=numpy.uint8)
        pairs = wkb.reshape(-1, 21)[:, 5:].copy().view(numpy.float64)
        xs.append(pairs[:, 0])
        ys.append(pairs[:, 1])
    fid = numpy.concatenate(fids)
    xyz = numpy.column_stack([numpy.concatenate(xs), numpy.concatenate(ys)])
else:
    n = layer.GetFeatureCount()
    xyz, fid, codes = numpy.empty((n, 3)), numpy.empty(n, dtype=numpy.int64), []
    for i, feature in enumerate(layer):
        point = feature.GetGeometryRef()
        xyz[i] = (point.GetX(), point.GetY(), point.GetZ())
        fid[i] = feature.GetFID()
        codes.append(feature.GetField("ECC"))
    codes = numpy.array(codes)
assert len(fid) == int(sys.argv[2])
"""

PEAK = "\nimport resource; print('peak-kb', resource.getrusage(resource.RUSAGE_SELF).ru_maxrss)\n"


def write_points(path):
    from osgeo import ogr, osr
    srs = osr.SpatialReference()
    srs.ImportFromEPSG(32632)
    source = ogr.GetDriverByName("ESRI Shapefile").CreateDataSource(path)
    layer = source.CreateLayer("points", srs, ogr.wkbPoint)
    layer.CreateField(ogr.FieldDefn("ECC", ogr.OFTString))
    layer.StartTransaction()
    definition = layer.GetLayerDefn()
    for i in range(COUNT):
        feature = ogr.Feature(definition)
        feature.SetField("ECC", "AL015" if i % 10 == 0 else "EC030")
        feature.SetGeometry(ogr.CreateGeometryFromWkt(
            f"POINT ({400000 + (i % 1000) * 20} {5000000 + (i // 1000) * 20})"))
        layer.CreateFeature(feature)
    layer.CommitTransaction()


def run(code, path):
    started = time.perf_counter()
    done = subprocess.run([sys.executable, "-c", code + PEAK, path, str(COUNT)],
                          capture_output=True, text=True)
    elapsed = time.perf_counter() - started
    if done.returncode != 0:
        sys.exit(f"failed ({done.returncode}): {done.stderr}")
    peak = int(done.stdout.split("peak-kb")[-1])
    return elapsed, peak


def main():
    directory = os.environ.get("ZOR_BENCH_DIR") or tempfile.mkdtemp(prefix="zorbench-python-")
    path = os.path.join(directory, "pypoints.shp")
    if not os.path.exists(path):
        write_points(path)
    rounds = {"zorterrain": [], "gdal": []}
    for _ in range(3):
        rounds["zorterrain"].append(run(OURS, path))
        rounds["gdal"].append(run(PEER, path))
    ours = min(t for t, _ in rounds["zorterrain"]), max(p for _, p in rounds["zorterrain"])
    peer = min(t for t, _ in rounds["gdal"]), max(p for _, p in rounds["gdal"])
    print(f"features(arrays=True) {ours[0]:.2f} s, GDAL's bindings {peer[0]:.2f} s")
    print(f"ratio time zorterrain / gdal = {ours[0] / peer[0]:.2f} (goal: within 1)")
    print(f"ratio peak memory zorterrain / gdal = {ours[1] / peer[1]:.2f} "
          f"({ours[1]} KB vs {peer[1]} KB; goal: within 2)")
    if "ZOR_BENCH_DIR" not in os.environ:
        shutil.rmtree(directory)


if __name__ == "__main__":
    main()
