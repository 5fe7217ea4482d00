#!/usr/bin/env bash
# json_view_examples.sh SYSDB_BIN SOURCE_DIR: every "$ command" example of
# docs/json-view.md (a 4-space indented line, the expected output on the lines
# under it up to a blank one) runs against the demo database with jq and
# prints exactly what the document shows.
set -euo pipefail
sysdb=$1 src=$2
fail() { echo "FAIL: $*" >&2; exit 1; }
command -v jq >/dev/null || fail "jq is missing: scripts/install-deps --tests (or apt-get install jq)"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir "$work/bin"
ln -s "$sysdb" "$work/bin/evpn_sysdb"
"$sysdb" load "$src/data/demo.json" --db "$work/demo.db" 2>/dev/null
export EVPN_SYSDB=$work/demo.db PATH=$work/bin:$PATH
n=0 cmd="" want=""
check() {
  [ -n "$cmd" ] || return 0
  n=$((n + 1))
  got=$(bash -o pipefail -c "$cmd") || fail "example $n exits non-zero: $cmd"
  [ "$got" = "$want" ] || { diff <(printf '%s\n' "$want") <(printf '%s\n' "$got") >&2; fail "example $n: $cmd"; }
  cmd="" want=""
}
while IFS= read -r line; do
  case $line in
    '    $ '*) check; cmd=${line#    \$ } ;;
    '    '*) [ -z "$cmd" ] || want+="${want:+$'\n'}${line#    }" ;;
    *) check ;;
  esac
done <"$src/docs/json-view.md"
check
[ "$n" -ge 3 ] || fail "docs/json-view.md: only $n examples"
echo "json view examples: ok ($n)"
