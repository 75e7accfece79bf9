# bash completion for zef. Commands and options are read from the help of the
# zef being completed (`zef --help`, `zef COMMAND --help`), so they never fall
# behind it. Installed as share/bash-completion/completions/zef; or source it.

# The words of the help's "Commands:" section.
_zef_commands() {
  "$1" --help 2>/dev/null | awk '/^Commands:/ {inside = 1; next} inside && /^$/ {exit} inside {print $1}'
}

# Long options anywhere in a help text, short ones where they start a line of
# its option table. An option written "--name=VALUE" is offered as "--name=".
_zef_options() {
  local help
  help=$("$@" --help 2>/dev/null) || return
  {
    grep -oE -- '--[a-z][a-z0-9-]*=?' <<<"$help"
    grep -oE -- '^ +-[a-zA-Z0-9]' <<<"$help" | tr -d ' '
  } | sort -u
}

# What the option table says an option takes: "DIR", "FILE" and so on, or
# nothing for a flag ("  -d DIR   extract below DIR").
_zef_argument_of() {
  "$1" "$2" --help 2>/dev/null | awk -v option="$3" '$1 == option && $2 ~ /^[A-Z]+$/ {print $2; exit}'
}

_zef() {
  local cur=${COMP_WORDS[COMP_CWORD]} zef=${COMP_WORDS[0]/#\~/$HOME}
  COMPREPLY=()
  if ((COMP_CWORD == 1)); then
    if [[ $cur == -* ]]; then
      mapfile -t COMPREPLY < <(compgen -W "$(_zef_options "$zef")" -- "$cur")
    else
      mapfile -t COMPREPLY < <(compgen -W "$(_zef_commands "$zef")" -- "$cur")
    fi
    return
  fi
  local command=${COMP_WORDS[1]} prev=${COMP_WORDS[COMP_CWORD - 1]}
  if [[ $prev == -* ]]; then
    case $(_zef_argument_of "$zef" "$command" "$prev") in
      "") ;;
      TIME | N) return ;;  # nothing to offer: a date or a number
      DIR)
        compopt -o filenames 2>/dev/null
        mapfile -t COMPREPLY < <(compgen -d -- "$cur")
        return
        ;;
      *)
        compopt -o filenames 2>/dev/null
        mapfile -t COMPREPLY < <(compgen -f -- "$cur")
        return
        ;;
    esac
  fi
  if [[ $cur == -* ]]; then
    mapfile -t COMPREPLY < <(compgen -W "$(_zef_options "$zef" "$command") --help" -- "$cur")
    if [[ ${#COMPREPLY[@]} -eq 1 && ${COMPREPLY[0]} == *= ]]; then
      compopt -o nospace 2>/dev/null
    fi
  fi
  # Anything else is a path: bash's own file name completion takes over.
}

complete -o bashdefault -o default -F _zef zef
