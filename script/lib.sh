# What the scripts share. Sourced, with the script's own path in $0.
set -euo pipefail
cd "$(dirname "$0")/.."

say() { printf '==> %s\n' "$*" >&2; }
die() { printf '%s: %s\n' "$(basename "$0")" "$*" >&2; exit 1; }

# build PRESET [TARGET...]: configures on first use and builds, quietly unless something is wrong.
build() {
  local preset=$1
  shift
  local log="build/$preset.log"
  mkdir -p build
  if [ ! -f "build/$preset/build.ninja" ]; then
    say "configuring $preset"
    cmake --preset "$preset" >"$log" 2>&1 || { cat "$log" >&2; die "cannot configure $preset"; }
  fi
  say "building $preset (a few minutes the first time)"
  cmake --build --preset "$preset" ${@:+--target "$@"} >"$log" 2>&1 || {
    cat "$log" >&2
    die "cannot build $preset"
  }
}
