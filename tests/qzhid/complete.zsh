# complete.zsh FOLDER WORD...: what the completion in FOLDER offers for the last word, one a line.
# What zsh does with it, and which files there are, is its own business.
fpath=($1 ${^fpath}/compinit(N:h))  # no completions of others: there are a thousand
autoload -Uz compinit
shift
compinit -D -u
[[ ${_comps[qzhid]} == _qzhid ]] || exit 1
_describe() {
  local -a names=(${${(P)@[-1]}%%:*})
  print -rl -- ${(M)names:#$PREFIX*}
}
_files() { print -rl -- $PREFIX*; }
_message() { :; }
words=("$@")
CURRENT=$#
PREFIX=$words[-1]
autoload +X _qzhid
_qzhid
