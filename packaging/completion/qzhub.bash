# Completion of qzhub for bash. Commands and options are those of the program's own help.

# _qzhub_names SECTION: the names that a help on standard input lists under Options or Subcommands.
_qzhub_names() { sed -nE "/^$1:/,/^([A-Z]|\$)/s/^  ([-a-z][-a-z,]*).*/\1/p" | tr , '\n'; }

_qzhub() {
  local program=${COMP_WORDS[0]/#\~/$HOME} word=${COMP_WORDS[COMP_CWORD]}
  local option=${COMP_WORDS[COMP_CWORD-1]} command='' help choices
  if [ "$word" = = ]; then  # as in --out=FILE
    word=
  elif [ "$option" = = ]; then
    option=${COMP_WORDS[COMP_CWORD-2]}
  fi
  [[ $option == -* ]] || option=-
  [ "$COMP_CWORD" -lt 2 ] || command=${COMP_WORDS[1]}
  help=$("$program" ${command:+"$command"} --help 2>/dev/null) || return

  COMPREPLY=()
  case $(sed -nE "s/^  $option ([A-Z]+).*/\1/p" <<<"$help") in
    FILE)
      compopt -o filenames 2>/dev/null
      mapfile -t COMPREPLY < <(compgen -f -- "$word")
      return
      ;;
    ?*) return ;;
  esac
  if [[ $word == -* ]]; then
    choices=$(_qzhub_names Options <<<"$help")
  elif [ "$command" = help ]; then
    choices=$("$program" --help | _qzhub_names Subcommands)
  else
    choices=$(_qzhub_names Subcommands <<<"$help")
  fi
  mapfile -t COMPREPLY < <(compgen -W "$choices" -- "$word")
}
complete -F _qzhub qzhub
