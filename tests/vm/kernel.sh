#!/usr/bin/env bash
# kernel.sh: prints the folder with Debian's unpacked kernel (boot/ and lib/modules/) of the series that
# the variable KERNEL names: 5.10, 6.1 (default), 6.12 or newest. Downloads it on first use, from the
# mirror that apt uses.
set -euo pipefail

series=${KERNEL:-6.1}
case $series in # the release of Debian that has it
  5.10) release=bullseye ;;
  6.1) release=bookworm ;;
  6.12) release=trixie ;;
  newest) release=sid ;;
  *) echo "no such kernel: KERNEL=$series (there are: 5.10, 6.1, 6.12, newest)" >&2; exit 2 ;;
esac
cache=${XDG_CACHE_HOME:-$HOME/.cache}/qzhidapi/kernel
kernels=$cache # of this release
[ "$series" = 6.1 ] || kernels=$cache/$release
mkdir -p "$kernels"
work=
trap '[ -z "$work" ] || rm -rf "$work"' EXIT

# apt_of_release: sets the array apt to options with which apt knows that release of Debian alone, and
# leaves what it knows of this system untouched.
apt_of_release() {
  local mirror
  mirror=$(apt-get indextargets --format '$(REPO_URI)' 'Created-By: Packages' 'Origin: Debian' \
    'Codename: bookworm' | head -n 1)
  [ -n "$mirror" ] || { echo 'apt has no mirror of Debian 12 here' >&2; return 1; }
  mkdir -p "$work/apt/lists/partial" "$work/apt/archives/partial"
  echo "deb [signed-by=/usr/share/keyrings/debian-archive-keyring.gpg] $mirror $release main" \
    >"$work/apt/sources.list"
  apt=(-o "Dir::Etc::SourceList=$work/apt/sources.list" -o Dir::Etc::SourceParts=-
    -o "Dir::State::Lists=$work/apt/lists" -o "Dir::Cache=$work/apt"
    -o Acquire::Languages=none -o Acquire::IndexTargets::deb::Contents-deb::DefaultEnabled=false
    -o Acquire::Check-Valid-Until=false)
}

# depends_of PACKAGE PATTERN: the packages that it depends on whose names match that.
depends_of() { apt-cache "${apt[@]}" depends "$1" 2>/dev/null | sed -n "s/^ *Depends: \\($2\\)\$/\\1/p"; }

fetch() {
  local package parts part
  work=$(mktemp -d "$cache/fetching.XXXXXX")
  apt_of_release
  apt-get "${apt[@]}" update >"$work/log" 2>&1 || { cat "$work/log" >&2; return 1; }
  package=$(depends_of linux-image-amd64 'linux-image-[0-9][^ ]*' | head -n 1)
  [ -n "$package" ] || { echo "no package linux-image-amd64 in $release" >&2; return 1; }
  echo "==> downloading $package (some 100 MB)" >&2
  # Since 7.0 the kernel and its modules have packages of their own.
  mapfile -t parts < <(depends_of "$package" 'linux-\(binary\|modules\)-[0-9][^ ]*')
  (cd "$work" && apt-get "${apt[@]}" download "$package" "${parts[@]}" >log 2>&1 &&
    for part in ./*.deb; do dpkg -x "$part" unpacked || exit 1; done) || { cat "$work/log" >&2; return 1; }
  mv -T "$work/unpacked" "$kernels/$package" 2>/dev/null || true # another run may have been faster
}

newest() { find "$kernels" -mindepth 1 -maxdepth 1 -name 'linux-image-*' | sort -V | tail -n 1; }

[ -n "$(newest)" ] || fetch
newest
