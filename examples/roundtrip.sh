#!/usr/bin/env bash
# The main job, end to end: pack examples/app with zef, list the archive,
# extract it into a fresh directory and show that the extracted tree equals
# the original in bytes, permission bits and symbolic links.
# Usage: examples/roundtrip.sh BUILD_DIR
set -euo pipefail
build=$(cd "${1:?usage: examples/roundtrip.sh BUILD_DIR}" && pwd)
zef="$build/tools/zef"
here=$(cd "$(dirname "$0")" && pwd)
work="$build/roundtrip"
rm -rf "$work"
mkdir -p "$work"

echo "== (cd examples && zef create $work/app.zef app=app)"
(cd "$here" && "$zef" create "$work/app.zef" app=app)
echo "== zef list $work/app.zef"
"$zef" list "$work/app.zef"
echo "== zef extract $work/app.zef -d $work/out"
"$zef" extract "$work/app.zef" -d "$work/out"

# Every file and link with its kind, permission bits and link target;
# then the bytes of every regular file.
describe() { (cd "$1" && find . ! -type d -printf '%y %m %p %l\n' | sort); }
echo "== comparing $here/app with $work/out/app"
diff <(describe "$here/app") <(describe "$work/out/app")
diff -r --no-dereference "$here/app" "$work/out/app"
echo "extracted tree equals the original: $(describe "$here/app" | wc -l) files and links, same bytes, modes and link targets"
