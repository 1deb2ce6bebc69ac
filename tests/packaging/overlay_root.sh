# What the tests that install packages in another Debian share. They source this, in a mount namespace of
# their own.

# open_root DEBIAN WORK: sets $root to the folder of that Debian, whose changes are kept in the folder WORK only.
open_root() {
  root=$2/root
  mkdir "$2/upper" "$2/work" "$root"
  mount -t overlay overlay -o "lowerdir=$1,upperdir=$2/upper,workdir=$2/work" "$root"
  mount -t proc proc "$root/proc"
}
