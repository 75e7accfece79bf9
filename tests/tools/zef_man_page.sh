#!/usr/bin/env bash
# The man page renders without a warning, writes every leading "-" as "\-" so
# that options copy as typed, carries the project's version, and documents
# every command and option that zef's help prints: each command in a
# subsection of its own that names that command's options.
# Usage: zef_man_page.sh ZEF MAN_PAGE VERSION (exit 77: skipped)
set -euo pipefail
zef=$1 page=$2 version=$3
if ! command -v groff >/dev/null; then
  echo "skipped: groff is not installed (Debian package groff-base)"
  exit 77
fi
failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }

warnings=$(groff -man -Tutf8 -ww -z "$page" 2>&1)
[ -z "$warnings" ] || fail "groff warns: $warnings"
# Comments aside, a "-" that starts a word must be "\-": a plain "-" is a hyphen.
if unescaped=$(grep -nE '(^|[[:space:]([|])-' "$page" | grep -v '^[0-9]*:\.\\"'); then
  fail "plain hyphens where a minus belongs:"$'\n'"$unescaped"
fi
grep -q "^\.TH ZEF 1 .*\"kxzefarchiver $version\"" "$page" || fail ".TH does not name kxzefarchiver $version"

text=$(groff -man -Tutf8 -P-cbu "$page")
# The rendered subsection of one command: from its heading "   zef COMMAND"
# to the next heading.
subsection() {
  awk -v heading="   zef $1" 'index($0, heading) == 1 && (length($0) == length(heading) || substr($0, length(heading) + 1, 1) == " ") {inside = 1; next}
    inside && /^ {0,3}[^ ]/ {exit} inside {print}' <<<"$text"
}
# Long options anywhere in a help text, short ones where they start a line of
# its option table ("  -d DIR   ...").
options() {
  grep -oE -- '--[a-z][a-z0-9-]*' <<<"$1" || true
  grep -oE -- '^ +-[a-zA-Z0-9]' <<<"$1" | tr -d ' ' || true
}
has() { grep -qF -- "$2" <<<"$1"; }

help=$("$zef" --help)
for option in $(options "$help" | sort -u); do
  has "$text" "$option" || fail "zef --help names $option, the man page does not"
done
commands=$(awk '/^Commands:/ {inside = 1; next} inside && /^$/ {exit} inside {print $1}' <<<"$help")
[ -n "$commands" ] || fail "no commands found in zef --help"
for command in $commands; do
  section=$(subsection "$command")
  if [ -z "$section" ]; then
    fail "no subsection for zef $command"
    continue
  fi
  command_help=$("$zef" "$command" --help)
  for option in $(options "$command_help" | sort -u); do
    has "$section" "$option" || fail "zef $command --help names $option, its man page subsection does not"
  done
done
echo "$(wc -w <<<"$commands") commands checked: $failures failures"
[ "$failures" -eq 0 ]
