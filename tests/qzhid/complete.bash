# complete.bash FILE WORD...: what the completion in FILE offers for the last word, one a line.
source "$1"
shift
COMP_WORDS=("$@")
COMP_CWORD=$(($# - 1))
_qzhid
[ ${#COMPREPLY[@]} -eq 0 ] || printf '%s\n' "${COMPREPLY[@]}"
