"""The Python module against zorhost itself: each answer equals `zorhost ... --json` on
the same files, on the sample set and on files written here with GDAL's bindings."""
import json
import os
import subprocess
import threading

import numpy
import pytest
from osgeo import ogr, osr

import zorterrain

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
ZORHOST = os.environ["ZORHOST"]
SAMPLE = os.path.join(ROOT, "data", "sample")


def zorhost_json(*args):
    run = subprocess.run([ZORHOST, *args, "--json"], cwd=ROOT, capture_output=True, text=True)
    return json.loads(run.stdout)


@pytest.fixture(scope="module")
def engine():
    return zorterrain.Engine()


@pytest.fixture(scope="module")
def trees(tmp_path_factory):
    """Three points in UTM 33 S written with OGR, one without a feature code."""
    path = str(tmp_path_factory.mktemp("vectors") / "trees.shp")
    srs = osr.SpatialReference()
    srs.ImportFromEPSG(32733)
    source = ogr.GetDriverByName("ESRI Shapefile").CreateDataSource(path)
    layer = source.CreateLayer("trees", srs, ogr.wkbPoint)
    layer.CreateField(ogr.FieldDefn("ECC", ogr.OFTString))
    for x, y, code in [(500100, 8894500, "EC030"), (500300, 8894700, "EC030"), (500500, 8894900, "")]:
        feature = ogr.Feature(layer.GetLayerDefn())
        feature.SetField("ECC", code)
        feature.SetGeometry(ogr.CreateGeometryFromWkt(f"POINT ({x} {y})"))
        layer.CreateFeature(feature)
    source = None
    return path


def test_answers_equal_zorhosts(engine, trees, monkeypatch):
    monkeypatch.chdir(ROOT)  # a KSL description's directories are the working directory's
    parsers = subprocess.run([ZORHOST, "parsers"], cwd=ROOT, capture_output=True, text=True)
    assert [f"{name}:" + "".join(" " + e for e in ext) for name, ext in engine.parsers()] == \
        parsers.stdout.splitlines()
    for path in [os.path.join(SAMPLE, "valley.gdb"), os.path.join(SAMPLE, "valley_points.shp"), trees]:
        expected = zorhost_json("features", path)
        features = engine.features(path)
        assert list(features) == expected["features"]
        assert features.load == expected["load"]
        assert features.scene == expected["scene"]
    sources = [os.path.join(SAMPLE, "valley_points.shp"), os.path.join(SAMPLE, "valley.gdb")]
    assert engine.values(sources) == zorhost_json("values", *sources)
    assert engine.values(sources, fields=["ECC"]) == zorhost_json("values", *sources, "--field", "ECC")
    points, rules = sources[0], os.path.join(SAMPLE, "valley_props.json")
    dem = os.path.join(SAMPLE, "n45_e009.dt0")
    expected = zorhost_json("props", points, "--rules", rules, "--terrain", dem)
    assert zorterrain.Engine().props(points, rules, terrain=[dem]) == expected
    with open(rules) as text:  # an engine names its props on: a fresh one, as zorhost runs
        assert zorterrain.Engine().props(points, json.load(text), terrain=[dem]) == expected
    mft = os.path.join(SAMPLE, "metaflight", "valley_tiles.mft")
    assert engine.describe(mft) == zorhost_json("describe", mft)
    alpine = os.path.join(SAMPLE, "metaflight", "alpine_valley.mft")
    assert engine.describe(alpine) == zorhost_json("describe", alpine)
    assert list(engine.tiles(mft, "Terrain")) == zorhost_json("tiles", mft, "--dataset", "Terrain")
    assert list(engine.tiles(alpine, "Elevation", level=2)) == \
        zorhost_json("tiles", alpine, "--dataset", "Elevation", "--level", "2")
    assert engine.check(mft) == zorhost_json("check", mft)
    assert engine.check(alpine, list=["all"], levels=[1]) == \
        zorhost_json("check", alpine, "--list", "all", "--level", "1")
    for record in zorhost_json("inspect"):
        assert engine.inspect(record["path"]) == record, record["path"]
    # In a scene of the caller's choice too.
    expected = zorhost_json("features", trees, "--scene", "EPSG:32733")
    assert list(engine.features(trees, scene="EPSG:32733")) == expected["features"]


def test_arrays_are_the_streamed_points(engine):
    path = os.path.join(SAMPLE, "valley.gdb")
    xyz, fid, facc = engine.features(path, arrays=True)
    points = [f for f in engine.features(path) if f["kind"] == "point"]
    assert xyz.shape == (len(points), 3)
    assert numpy.array_equal(xyz, numpy.array([p["location"] for p in points]))
    assert fid.tolist() == [p["featureId"] for p in points]
    assert facc.tolist() == [p["facc"] for p in points]


def test_failures_are_exceptions_with_zorhosts_message(engine, tmp_path):
    missing = str(tmp_path / "missing.shp")
    with pytest.raises(OSError, match="missing.shp: no such file"):
        engine.features(missing)
    with pytest.raises(ValueError, match="--scene Bogus:1"):
        engine.features(os.path.join(SAMPLE, "valley.gdb"), scene="Bogus:1")
    with pytest.raises(OSError):
        zorterrain.Engine(plugin=str(tmp_path / "libnothing.so"))
    mft = os.path.join(SAMPLE, "metaflight", "valley_tiles.mft")
    with pytest.raises(OSError, match='no geometry dataset "Nope"'):
        engine.tiles(mft, "Nope")
    with pytest.raises(OSError, match="missing.mft: no such file"):
        engine.describe(str(tmp_path / "missing.mft"))
    with pytest.raises(ValueError, match="rules: "):
        engine.props(os.path.join(SAMPLE, "valley_points.shp"), {"rules": "no"})
    with pytest.raises(ValueError, match="counted from 0"):
        engine.tiles(mft, "Terrain", level=-1)


def test_hostile_inputs_are_exceptions_and_the_interpreter_lives(engine, tmp_path):
    points = os.path.join(SAMPLE, "valley_points.shp")
    deep = tmp_path / "deep.json"
    deep.write_text('{"rules":[{"fields":{"f":' + '{"a":' * 100000 + '"v"' + "}" * 100000
                    + "}}]}")
    with pytest.raises(ValueError, match="nested deeper than 64 levels"):
        engine.props(points, str(deep))
    nested = "v"
    for _ in range(100000):
        nested = {"a": nested}
    with pytest.raises(ValueError, match="nested deeper than 64 levels"):
        engine.props(points, {"rules": [{"fields": {"f": nested}}]})
    # Divisions whose product wraps in 32 bits: refused, naming the level.
    mft = open(os.path.join(SAMPLE, "metaflight", "valley_tiles.mft")).read()
    wrapped = tmp_path / "wrapped.mft"
    wrapped.write_text(mft.replace("<NumColDivisions>2</NumColDivisions>",
                                   "<NumColDivisions>65536</NumColDivisions>"))
    with pytest.raises(OSError, match='dataset "Terrain" level 1: 65536 x 2 divisions'):
        engine.describe(str(wrapped))


def test_tiles_stream_and_check_finds_a_hole(engine, tmp_path):
    import shutil
    shutil.copytree(os.path.join(SAMPLE, "metaflight"), tmp_path / "db")
    os.remove(tmp_path / "db" / "Terrain" / "L1" / "tile_002_001.medf")
    mft = str(tmp_path / "db" / "valley_tiles.mft")
    tiles = engine.tiles(mft, "Terrain", level=1)
    first = next(tiles)
    assert (first["row"], first["col"]) == (0, 0)
    assert len(list(tiles)) == 15
    answer = engine.check(mft)
    assert [(r["status"], r["row"], r["col"]) for r in answer[:-1]] == [("missing", 2, 1)]
    assert answer[-1]["summary"]["complete"] is False


def test_map_writes_the_picture_zorhost_would(engine, tmp_path):
    from osgeo import gdal
    picture = str(tmp_path / "valley.png")
    answer = engine.map(picture, features=[os.path.join(SAMPLE, "valley.gdb")],
                        terrain=[os.path.join(SAMPLE, "n45_e009.dt0")], size=[400, 300])
    run = subprocess.run([ZORHOST, "map", str(tmp_path / "cli.png"), "--features",
                          os.path.join(SAMPLE, "valley.gdb"), "--terrain",
                          os.path.join(SAMPLE, "n45_e009.dt0"), "--size", "400x300"],
                         cwd=ROOT, capture_output=True, text=True)
    assert run.returncode == 0, run.stderr
    written, cli = gdal.Open(picture), gdal.Open(str(tmp_path / "cli.png"))
    assert (written.RasterXSize, written.RasterYSize) == (answer["width"], answer["height"])
    assert written.GetGeoTransform() == cli.GetGeoTransform()
    assert answer["frame"] == (400, 300)
    with pytest.raises(OSError, match="exists; give --overwrite"):
        engine.map(picture, features=[os.path.join(SAMPLE, "valley.gdb")])
    with pytest.raises(ValueError, match="nothing to draw"):
        engine.map(str(tmp_path / "nothing.png"))


def test_an_answer_with_faults_is_given_and_they_are_logged(trees, caplog, tmp_path):
    """Props the terrain cannot hold are in the answer, said to the logger; a missing DEM
    is a failure."""
    rules = {"models": {"oak": "oak.flt"},
             "rules": [{"fields": {"ECC": "EC030"}, "model": "oak", "propType": "tree"}]}
    dem = os.path.join(SAMPLE, "n45_e009.dt0")  # far from the trees in UTM 33 S
    with caplog.at_level("WARNING", logger="zorterrain"):
        answer = zorterrain.Engine().props(trees, rules, terrain=[dem])
    assert [p["placed"] for p in answer["props"]] == [False, False]
    assert any("2 props not placed" in note for note in answer["notes"])
    assert any("2 props not placed" in r.getMessage() for r in caplog.records)
    with pytest.raises(OSError, match="nope.dt0: no such file"):
        zorterrain.Engine().props(trees, rules, terrain=[str(tmp_path / "nope.dt0")])


def test_answers_live_and_go_in_any_order(engine, trees):
    """Each load's session ends with it: answers kept and dropped out of order leave the
    next load's account whole."""
    gdb = os.path.join(SAMPLE, "valley.gdb")
    first, second = engine.features(trees), engine.features(gdb)
    del first
    third = engine.features(trees)
    del second
    assert engine.features(gdb).load == zorhost_json("features", gdb)["load"]
    assert list(third) == zorhost_json("features", trees)["features"]


def test_engines_and_threads_agree(trees):
    first, second = zorterrain.Engine(), zorterrain.Engine()
    expected = list(first.features(trees))
    answers = [None] * 4

    def load(i):
        answers[i] = list((first if i % 2 else second).features(trees))

    threads = [threading.Thread(target=load, args=(i,)) for i in range(4)]
    for t in threads:
        t.start()
    for t in threads:
        t.join()
    assert answers == [expected] * 4
