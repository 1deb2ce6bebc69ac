# What the scripts that make packages share. They source it: $source is the folder of the sources, and $work
# one that is removed in the end.
source=$(cd "$(dirname "$0")/../.." && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# into FOLDER: sets $folder to its full name, and makes it if it is not there.
into() {
  mkdir -p "$1"
  folder=$(cd "$1" && pwd)
}
