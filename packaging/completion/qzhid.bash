# Completion of qzhid for bash. Commands and options are those of the program's own help.

# _qzhid_names SECTION: the names that the sections of a help on standard input list.
_qzhid_names() { sed -nE "/^$1:/,/^([A-Z]|\$)/s/^  ([-a-z0-9][-a-z0-9,]*).*/\1/p" | tr , '\n'; }

# _qzhid_value OPTION: the kind of value that an option has in a help on standard input.
_qzhid_value() { sed -nE "s/^  (-[a-z],)?$1(,[-a-z]+)? ([A-Z]+)([^a-z].*|\$)/\3/p"; }

# Port ids and names of the hubs that the library of the command line finds.
_qzhid_hubs() {
  timeout 2 "$program" "${library[@]}" list --json 2>/dev/null |
    sed -nE 's/^ *"(port_id|name)": "(.*)",$/\2/p'
}

_qzhid_files() {
  compopt -o filenames 2>/dev/null
  mapfile -t COMPREPLY < <(compgen -f -- "$word")
}

# _qzhid_offer CHOICE...: those that begin with the word, which may be quoted.
_qzhid_offer() {
  local choice plain=${word//[\\\"\']/}
  for choice; do
    [[ $choice != "$plain"* ]] || COMPREPLY+=("$choice")
  done
}

_qzhid() {
  local program=${COMP_WORDS[0]/#\~/$HOME} word=${COMP_WORDS[COMP_CWORD]}
  local help given found option='' kind='' choices=() commands=() library=()
  help=$("$program" --help 2>/dev/null) || return
  for given in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
    [ "$given" != = ] || continue  # as in --image=FILE
    if [ -n "$option" ]; then      # its value
      [ "$option" != --library ] || library=(--library "$given")
      option=
    elif found=$(_qzhid_value "$given" <<<"$help") && [ -n "$found" ]; then
      option=$given kind=$found
    elif [ "$given" = --virtual ]; then
      library=(--virtual)
    elif [ "$given" != help ] && _qzhid_names Subcommands <<<"$help" | grep -qxFe "$given"; then
      commands+=("$given")
      help=$("$program" "${commands[@]}" --help)
    fi
  done
  [ "$word" != = ] || word=

  COMPREPLY=()
  [ -n "$option" ] || kind=
  case $kind in
    FILE)
      _qzhid_files
      return
      ;;
    HUB)
      compopt -o filenames 2>/dev/null  # which quotes blanks
      mapfile -t choices < <(_qzhid_hubs)
      ;;
    MODE) choices=(auto lines json) ;;
    ?*) return ;;
  esac
  if [ -z "$option" ]; then
    if [[ $word == -* ]]; then
      mapfile -t choices < <(_qzhid_names '(Common o|O)ptions' <<<"$help")
    elif grep -q '^  FILE ' <<<"$help"; then
      _qzhid_files
      return
    else
      mapfile -t choices < <(_qzhid_names Subcommands <<<"$help")
    fi
  fi
  _qzhid_offer "${choices[@]}"
}
complete -F _qzhid qzhid
