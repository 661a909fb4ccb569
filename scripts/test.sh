#!/usr/bin/env bash
# Builds zorTerrain and passes every test: the sources' formatting, the suite in a
# normal build (the Python module's pytest suite with it), the suite again under
# AddressSanitizer + UndefinedBehaviorSanitizer and under ThreadSanitizer, then each
# libFuzzer target for a short bounded time (FUZZ_SECONDS, default 15) when clang is
# present.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh

jobs=$(nproc)
fuzz_seconds=${FUZZ_SECONDS:-15}
generator=()
command -v ninja >/dev/null && generator=(-G Ninja)

step() { printf '\n== %s ==\n' "$*"; }

step "formatting (.clang-format)"
# A format-only difference fails here, before anything is built.
git ls-files '*.cpp' '*.h' | xargs clang-format --dry-run --Werror

step "zorhost's layers (no front end included below it)"
bash scripts/check-layers.sh

step "normal build and tests"
cmake -S . -B build "${generator[@]}" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j "$jobs"
ctest --test-dir build --output-on-failure -j "$jobs"

step "AddressSanitizer + UndefinedBehaviorSanitizer build and tests"
cmake -S . -B build-asan "${generator[@]}" -DCMAKE_BUILD_TYPE=Debug -DZOR_SANITIZE=ON \
      -DZOR_BUILD_BENCHMARKS=OFF >/dev/null
cmake --build build-asan -j "$jobs"
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
LSAN_OPTIONS=suppressions=$PWD/scripts/lsan.supp:print_suppressions=0 \
  ctest --test-dir build-asan --output-on-failure -j "$jobs"

step "ThreadSanitizer build and tests"
# GDAL's own lock-order reports are suppressed by name (scripts/tsan.supp); nothing of ours.
cmake -S . -B build-tsan "${generator[@]}" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DZOR_TSAN=ON \
      -DZOR_BUILD_BENCHMARKS=OFF >/dev/null
cmake --build build-tsan -j "$jobs"
TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1 suppressions=$PWD/scripts/tsan.supp" \
  ctest --test-dir build-tsan --output-on-failure -j "$jobs"

if command -v clang++ >/dev/null; then
  step "fuzz targets, ${fuzz_seconds}s each"
  cmake -S . -B build-fuzz "${generator[@]}" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
        -DCMAKE_CXX_COMPILER=clang++ -DZOR_BUILD_FUZZERS=ON -DZOR_BUILD_TESTS=OFF \
        -DZOR_BUILD_BENCHMARKS=OFF >/dev/null
  cmake --build build-fuzz -j "$jobs"
  for target in build-fuzz/fuzz/fuzz_*; do
    [[ -x "$target" && "$target" != *_replay ]] || continue
    name=$(basename "$target")
    corpus_dir=fuzz/corpus/${name#fuzz_}
    work=$(mktemp -d)
    cp -r "$corpus_dir"/. "$work"/ 2>/dev/null || true
    # Readers with nesting or repetition limits get a dictionary that builds depth, and
    # inputs long enough to reach the limits.
    extra=()
    dict=fuzz/dict/${name#fuzz_}.dict
    [[ -f "$dict" ]] && extra+=(-dict="$dict")
    case "$name" in
      fuzz_ksl) extra+=(-max_len=1048576) ;;
      fuzz_rules|fuzz_wkt|fuzz_metaflight) extra+=(-max_len=65536) ;;
    esac
    echo "-- $name"
    # A crash leaves its input in fuzz/findings/ to be added to the corpus once fixed.
    mkdir -p fuzz/findings
    "$target" "$work" "${extra[@]}" -max_total_time="$fuzz_seconds" -timeout=10 \
      -rss_limit_mb=2048 -artifact_prefix=fuzz/findings/"$name"- -print_final_stats=1 2>&1 |
      tail -n 12
    rm -rf "$work"
  done
else
  step "clang++ not found: fuzz targets skipped"
fi

step "all tests passed"
