#!/usr/bin/env bash
# Runs blocks of README.md as a newcomer types them: the fenced block after
# each <!-- NAME --> line, in the order given, in one bash that stops at the
# first failing command. The blocks run in WORK_DIR, made afresh to look like
# the top of the source tree (a copy of examples/, build/ the build under test),
# with HOME pointing into it, so they touch nothing outside WORK_DIR.
# Usage: readme_blocks.sh SOURCE_DIR BUILD_DIR WORK_DIR [--home-lib DIR] [--needs PROGRAM] NAME...
#   --home-lib DIR   make $HOME/.local/lib the folder DIR, as an install would
#   --needs PROGRAM  skip (exit 77) when PROGRAM is not installed
set -euo pipefail
source_dir=$1 build_dir=$2 work=$3
shift 3
rm -rf "$work"
mkdir -p "$work/home"
cp -a "$source_dir/examples" "$work/examples"
ln -s "$build_dir" "$work/build"
script=""
while (($#)); do
  case $1 in
    --home-lib)
      mkdir -p "$work/home/.local"
      ln -s "$2" "$work/home/.local/lib"
      shift 2
      ;;
    --needs)
      command -v "$2" >/dev/null || { echo "skipped: $2 is not installed"; exit 77; }
      shift 2
      ;;
    *)
      block=$(awk -v marker="<!-- $1 -->" '$0 == marker {found = 1; next}
        found && /^```$/ {if (inside) exit; inside = 1; next} inside {print}' "$source_dir/README.md")
      [ -n "$block" ] || { echo "README.md has no block after <!-- $1 -->"; exit 1; }
      script+="echo '== README block $1'"$'\n'"$block"$'\n'
      shift
      ;;
  esac
done
cd "$work"
HOME="$work/home" bash -euo pipefail -x -c "$script" </dev/null
