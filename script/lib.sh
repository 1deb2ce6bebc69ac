# What the scripts share. They source it, with their own path in $0.
set -euo pipefail
cd "$(dirname "$0")/.."

# say TEXT: prints it with the minutes and seconds since the script began.
say() { printf '==> %d:%02d %s\n' $((SECONDS / 60)) $((SECONDS % 60)) "$*" >&2; }
die() { printf '%s: %s\n' "$(basename "$0")" "$*" >&2; exit 1; }

# epoch: the time of the sources, in seconds since 1970: that in SOURCE_DATE_EPOCH, of the last commit, or,
# in sources without git, the day of the newest section of CHANGELOG.md.
epoch() {
  if [ -n "${SOURCE_DATE_EPOCH:-}" ]; then
    echo "$SOURCE_DATE_EPOCH"
  elif [ -e .git ]; then
    git log -1 --format=%ct || die 'git does not say when the last commit was made'
  else
    local day
    day=$(sed -n 's/^## .* (\([0-9-]*\))$/\1/p' CHANGELOG.md | head -n 1)
    date --utc --date "${day:?no day in CHANGELOG.md}" +%s
  fi
}

# configure PRESET [SETTING=VALUE...]: configures on first use, and again if a setting has changed.
configure() { configure_in "build/$1" "$@"; }

# configure_in FOLDER PRESET [SETTING=VALUE...]: the same in a folder other than the preset's own.
configure_in() {
  local folder=$1 preset=$2 log="$1.log" setting complete=yes
  shift 2
  [ -f "$folder/build.ninja" ] || complete=
  for setting in "$@"; do
    grep -qE "^${setting%%=*}:[A-Z]+=${setting#*=}$" "$folder/CMakeCache.txt" 2>/dev/null || complete=
  done
  if [ -n "$complete" ]; then
    ninja -C "$folder" build.ninja >"$log" 2>&1 && return 0 # which CMake makes again when it is old
  fi
  say "configuring $folder"
  mkdir -p build
  cmake --preset "$preset" -B "$folder" "${@/#/-D}" >"$log" 2>&1 ||
    { cat "$log" >&2; die "cannot configure $folder"; }
}

# build PRESET [TARGET...]: configures on first use and builds; prints the log only if that fails.
build() {
  local preset=$1 log="build/$1.log"
  shift
  configure "$preset"
  say "building $preset (a few minutes the first time)"
  cmake --build --preset "$preset" ${@:+--target "$@"} >"$log" 2>&1 || {
    cat "$log" >&2
    die "cannot build $preset"
  }
}

# check_with_lintian NAME FILE...: the packages follow Debian's rules.
check_with_lintian() {
  lintian --fail-on error,warning "${@:2}" >"build/$1.log" 2>&1 ||
    { cat "build/$1.log" >&2; die "the packages of $1 are not as Debian wants them"; }
}

# Downloads, which are kept when the checkout is deleted.
cache=${XDG_CACHE_HOME:-$HOME/.cache}/qzhidapi

# can_run_arm64: whether ARM64 programs can run here; if not, prints the reason. Needs root: it adds the
# emulator to the kernel's table of program formats if it is not there yet.
can_run_arm64() {
  local table=/proc/sys/fs/binfmt_misc
  [ "$(id -u)" -eq 0 ] || { echo "not root"; return 1; }
  [ -e $table/register ] || mount -t binfmt_misc binfmt_misc $table 2>/dev/null ||
    { echo "the kernel has no binfmt_misc"; return 1; }
  [ -e $table/qemu-aarch64 ] ||
    cat /usr/lib/binfmt.d/qemu-aarch64.conf >$table/register 2>/dev/null ||
    { echo "the emulator cannot be registered"; return 1; }
}
