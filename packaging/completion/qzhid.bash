# Completion of qzhid for bash. Commands and options are those of the program's own help.

# _qzhid_names SECTION: the names that a help on standard input lists under Options or Subcommands.
_qzhid_names() { sed -nE "/^$1:/,/^\$/s/^  (-h,)?([-a-z0-9]+).*/\2/p"; }

# Numbers of the hubs that the library of the command line finds.
_qzhid_hubs() {
  timeout 2 "$program" "${library[@]}" list --json 2>/dev/null |
    sed -nE 's/^ *"instance": ([0-9]+),$/\1/p'
}

_qzhid_files() {
  compopt -o filenames 2>/dev/null
  mapfile -t COMPREPLY < <(compgen -f -- "$word")
}

_qzhid() {
  local program=${COMP_WORDS[0]/#\~/$HOME} word=${COMP_WORDS[COMP_CWORD]}
  local common help given option='' choices='' commands=() library=()
  common=$("$program" --help 2>/dev/null) || return
  help=$common
  for given in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
    [ "$given" != = ] || continue  # as in --image=FILE
    if [ -n "$option" ]; then      # its value
      [ "$option" != --library ] || library=(--library "$given")
      option=
    elif grep -qE "^  $given (TEXT|U?INT)" <<<"$help$common"; then
      option=$given
    elif [ "$given" = --virtual ]; then
      library=(--virtual)
    elif _qzhid_names Subcommands <<<"$help" | grep -qxFe "$given"; then
      commands+=("$given")
      help=$("$program" "${commands[@]}" --help)
    fi
  done
  [ "$word" != = ] || word=

  COMPREPLY=()
  case $option in
    --image | --log | --library | --file | --out) _qzhid_files; return ;;
    --hub) choices=$(_qzhid_hubs) ;;
    ?*) return ;;
  esac
  if [ -z "$option" ]; then
    if [[ $word == -* ]]; then
      choices=$(_qzhid_names Options <<<"$help"; _qzhid_names Options <<<"$common")
    elif grep -q '^  FILE ' <<<"$help"; then
      _qzhid_files
      return
    elif grep -q '^  HUB ' <<<"$help"; then
      choices=$(_qzhid_hubs)
    else
      choices=$(_qzhid_names Subcommands <<<"$help")
    fi
  fi
  mapfile -t COMPREPLY < <(compgen -W "$choices" -- "$word")
}
complete -F _qzhid qzhid
