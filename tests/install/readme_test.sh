#!/usr/bin/env bash
# readme_test.sh SOURCE_DIR WORK_DIR: clones SOURCE_DIR's committed HEAD into
# WORK_DIR/clone and runs, in order, every command the README gives between
# its "readme-commands" markers (4-space indented lines; a "  # ..." comment
# at the end is dropped), each from the clone's top with no input. An install
# prefix of /usr/local becomes a scratch folder. Fails on the first command
# that does not exit 0, with its output.
set -euo pipefail
src=$1 work=$2
fail() { echo "FAIL: $*" >&2; exit 1; }
rm -rf "$work"
mkdir -p "$work"
# The clone sits under WORK_DIR (the build tree), where a compiler cache that
# keys on paths below a base folder still finds the objects.
git clone -q --no-checkout "$src" "$work/clone"
git -C "$work/clone" checkout -q --detach "$(git -C "$src" rev-parse HEAD)"
cd "$work/clone"
mapfile -t commands < <(awk '
  /<!-- readme-commands: begin -->/ { on = 1; next }
  /<!-- readme-commands: end -->/   { on = 0; next }
  on && /^    [^ ]/ { sub(/^    /, ""); sub(/[ \t][ \t]+# .*$/, ""); print }' README.md)
[ ${#commands[@]} -ge 10 ] || fail "README.md: only ${#commands[@]} commands between its markers"
n=0
for cmd in "${commands[@]}"; do
  n=$((n + 1))
  cmd=${cmd//\/usr\/local/$work/prefix}
  start=$SECONDS
  if ! bash -c "$cmd" </dev/null >"$work/out" 2>&1; then
    tail -30 "$work/out" >&2
    fail "README command $n failed: $cmd"
  fi
  echo "ok $n ($((SECONDS - start)) s): $cmd"
done
[ -x "$work/prefix/bin/evpn_shell" ] || fail "the README's install left no $work/prefix/bin/evpn_shell"
ls build/evpn-show_*.deb >/dev/null 2>&1 || fail "the README's cpack made no package in build/"
echo "readme test: ok ($n commands)"
