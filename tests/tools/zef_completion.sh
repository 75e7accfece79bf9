#!/usr/bin/env bash
# The bash completion of zef, sourced into this shell and asked as bash asks
# it on TAB: commands, each command's options and the arguments options take.
# Usage: zef_completion.sh ZEF COMPLETION_SCRIPT
set -uo pipefail
zef=$1
# shellcheck source=/dev/null
source "$2"
failures=0

# complete "WORDS...": the replies to completing the last word of WORDS, sorted
# on one line.
complete_words() {
  local -a COMP_WORDS COMPREPLY=()
  read -ra COMP_WORDS <<<"$1"
  COMP_WORDS[0]=$zef
  [[ $1 == *" " ]] && COMP_WORDS+=("")
  local COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
  _zef 2>/dev/null
  printf '%s\n' "${COMPREPLY[@]}" | sort | paste -sd ' '
}

# expect "WORDS..." "EXPECTED REPLIES"
expect() {
  local got
  got=$(complete_words "$1")
  if [ "$got" != "$2" ]; then
    echo "FAIL: '$1' completes to '$got', expected '$2'"
    failures=$((failures + 1))
  fi
}

# offers "WORDS..." REPLY...: each REPLY is among the replies (others may join).
offers() {
  local got reply
  got=" $(complete_words "$1") "
  for reply in "${@:2}"; do
    if [[ $got != *" $reply "* ]]; then
      echo "FAIL: '$1' completes to '$got', which lacks '$reply'"
      failures=$((failures + 1))
    fi
  done
}

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work" && mkdir -p out/sub && touch app.zef manifest.tsv

complete -p zef >/dev/null || { echo "FAIL: no completion registered for zef"; failures=$((failures + 1)); }
# Row: the words typed (a trailing space starts a new word), then the replies.
expect "zef cr" "create"
expect "zef " "$("$zef" --help | awk '/^Commands:/ {on = 1; next} on && /^$/ {exit} on {print $1}' | sort | paste -sd ' ')"
expect "zef check --max" "--max-size="          # an option that takes its value after "="
offers "zef create --" --from --help --keep
offers "zef extract app.zef --" --ask --flat --help --exclude --overwrite= --verbose --quiet
expect "zef extract app.zef -d " "out"            # -d takes a directory
expect "zef create app.zef --from man" "manifest.tsv"
expect "zef create --keep ap" ""                  # a path: bash's own completion
expect "zef create --mtime " ""                   # a time: nothing to offer
echo "completion checked: $failures failures"
[ "$failures" -eq 0 ]
