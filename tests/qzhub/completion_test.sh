#!/bin/sh
# completion_test.sh QZHUB: what the completions for bash and zsh offer.
set -eu
qzhub=$1
root=$(cd "$(dirname "$0")/../.." && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0

# offer CHOICES WORD...: both completions offer exactly these choices for the last word, in any order.
# What zsh does with them, and which files exist, is not tested.
offer() {
  echo "$1" | tr ' ' '\n' | grep . | sort > "$work/wanted"
  shift
  bash -c '. "$0"; COMP_WORDS=("$@") COMP_CWORD=$(($# - 1)); _qzhub; printf "%s\n" "${COMPREPLY[@]}"' \
    "$root/packaging/completion/qzhub.bash" "$qzhub" "$@" | grep . | sort > "$work/bash"
  zsh -fc 'fpath=($0 ${^fpath}/compinit(N:h))  # without the completions of others, a thousand
    autoload -Uz compinit && compinit -D -u && [[ $_comps[qzhub] == _qzhub ]] && autoload +X _qzhub
    _describe() { local -a all=(${${(P)@[-1]}%%:*}); print -rl -- ${(M)all:#$PREFIX*}; }
    _files() { print -rl -- $PREFIX*; }
    _message() { :; }
    words=("$@") CURRENT=$# PREFIX=$@[-1]
    _qzhub' "$root/packaging/completion" "$qzhub" "$@" | grep . | sort > "$work/zsh"
  for shell in bash zsh; do
    diff -u "$work/wanted" "$work/$shell" >&2 && continue
    echo "$shell does not complete '$*'" >&2
    failures=1
  done
}

cd "$work"
touch new.bin
offer 'image serve redirect attach plug unplug power-loss help' ''
offer 'serve' s
offer '--help --version' --
offer 'image serve redirect attach plug unplug power-loss help' help ''
offer 'attach' help a
offer 'plug power-loss' p
offer '--help --scenario' unplug --
offer '' plug ''
offer 'new.bin' plug dock --scenario ne
offer '--help --listen --scenario --capture' serve --
offer '--help --listen --scenario --capture' redirect --
offer 'new.bin' attach --capture ne
offer '--size' image --s
offer '' serve ''
offer '' image --size ''
offer 'new.bin' image --out ne
offer 'new.bin' serve --listen 127.0.0.1:0 --scenario ne
offer '' no-such-command ''
exit $failures
