# Completion of qzhid for bash. Commands and options are those of the program's own help.

# _qzhid_names SECTION: the names that the sections of a help on standard input list.
_qzhid_names() { sed -nE "/^$1:/,/^([A-Z]|\$)/s/^  ([-a-z0-9][-a-z0-9,]*).*/\1/p" | tr , '\n'; }

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
  local help given option='' choices=() commands=() library=()
  help=$("$program" --help 2>/dev/null) || return
  for given in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
    [ "$given" != = ] || continue  # as in --image=FILE
    if [ -n "$option" ]; then      # its value
      [ "$option" != --library ] || library=(--library "$given")
      option=
    elif grep -qE "^  (-[a-z],)?$given(,[-a-z]+)? [A-Z]([^a-z]|$)" <<<"$help"; then
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
    -i | --image | --log | --library | --file | --out | --record | --csv | --page | --html | --bundle | --with-log)
      _qzhid_files
      return
      ;;
    --hub)
      compopt -o filenames 2>/dev/null  # which quotes blanks
      mapfile -t choices < <(_qzhid_hubs)
      ;;
    --progress) choices=(auto lines json) ;;
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
