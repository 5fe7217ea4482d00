#!/usr/bin/env bash
# package_test.sh BUILD_DIR SOURCE_DIR
# Installs the build into a scratch prefix and checks the layout; makes the
# Debian package, unpacks it and runs the demo from the unpacked tree alone;
# renders the man pages with warnings on; completes words with the bash
# completion. Fails on the first thing that is not as a user expects.
set -euo pipefail
build=$1 src=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

# ---- cmake --install: every file in its place ----
cmake --install "$build" --prefix "$work/prefix" >/dev/null
for f in bin/evpn_show_client bin/evpn_sysdb bin/evpn_shell share/man/man1/evpn_shell.1.gz \
         share/man/man1/evpn_show_client.1.gz share/man/man1/evpn_sysdb.1.gz share/evpn-show/demo.json \
         share/doc/evpn-show/README.md share/doc/evpn-show/snapshot-format.md share/doc/evpn-show/json-view.md \
         share/doc/evpn-show/copyright share/doc/evpn-show/changelog.gz \
         share/bash-completion/completions/evpn_sysdb share/bash-completion/completions/evpn_shell \
         share/bash-completion/completions/evpn_show_client \
         lib/systemd/system/evpn-collector.service lib/sysusers.d/evpn-show.conf; do
  [ -e "$work/prefix/$f" ] || fail "install: $f missing"
done

# ---- the package: declared dependencies, nothing pointing into the build ----
(cd "$work" && cpack -G DEB --config "$build/CPackConfig.cmake" -B "$work/pkg" >/dev/null)
deb=$(ls "$work"/pkg/*.deb)
depends=$(dpkg-deb -f "$deb" Depends)
[[ $depends == *libc6* ]] || fail "package: Depends does not name the C library: '$depends'"
dpkg-deb -x "$deb" "$work/root"
[ -x "$work/root/usr/bin/evpn_show_client" ] || fail "package: no /usr/bin/evpn_show_client"
if grep -rl --binary-files=text "$build" "$work/root" >/dev/null; then
  fail "package: $(grep -rl --binary-files=text "$build" "$work/root" | head -1) names the build tree"
fi

# ---- lintian: no error; its warnings are shown ----
command -v lintian >/dev/null || fail "lintian is missing: scripts/install-deps --tests (or apt-get install lintian)"
report=$(lintian --tag-display-limit 0 "$deb" 2>&1 | grep -v '^running with root privileges' || true)
[ -z "$report" ] || printf '%s\n' "$report" >&2
if grep -q '^E:' <<<"$report"; then fail "lintian reports errors on $(basename "$deb")"; fi
# The change log's newest entry is this version.
[ "$(zcat "$work/root/usr/share/doc/evpn-show/changelog.gz" | sed -n '1s/^evpn-show (\([^)]*\)).*/\1/p')" = \
  "$(dpkg-deb -f "$deb" Version)" ] || fail "changelog.gz does not start with the package's version"

# ---- purge removes the database and its folder; remove keeps them ----
postrm=$work/control/postrm
dpkg-deb -e "$deb" "$work/control"
[ -x "$postrm" ] || fail "package: no postrm"
mkdir -p "$work/dpkgroot/var/lib/evpn-show"
touch "$work/dpkgroot/var/lib/evpn-show/sysdb.db"
DPKG_ROOT=$work/dpkgroot "$postrm" remove
[ -f "$work/dpkgroot/var/lib/evpn-show/sysdb.db" ] || fail "postrm remove deleted the database"
DPKG_ROOT=$work/dpkgroot "$postrm" purge
[ ! -e "$work/dpkgroot/var/lib/evpn-show" ] || fail "postrm purge left /var/lib/evpn-show"
[ -d "$work/dpkgroot/var/lib" ] || fail "postrm purge removed more than its own folder"

# ---- the demo from the unpacked tree: its own default database ----
# The unpacked /usr/bin programs take <root>/var/lib/evpn-show/sysdb.db.
# (grep without -q reads all its input: with pipefail, a writer cut off by an
# early exit would fail the pipe.)
env -u EVPN_SYSDB "$work/root/usr/bin/evpn_sysdb" --help | grep -F "$work/root/var/lib/evpn-show/sysdb.db (installed)" >/dev/null ||
  fail "installed default: $("$work/root/usr/bin/evpn_sysdb" --help | grep Here)"
env -u EVPN_SYSDB "$work/root/usr/bin/evpn_sysdb" load "$work/root/usr/share/evpn-show/demo.json" 2>/dev/null
[ -f "$work/root/var/lib/evpn-show/sysdb.db" ] || fail "load did not make the installed default database"
"$build/tools/evpn_sysdb" load "$src/data/demo.json" --db "$work/reference.db" 2>/dev/null
for cmd in 7 5 0 "-d 3" 10; do
  # shellcheck disable=SC2086  # options are words
  got=$(env -u EVPN_SYSDB "$work/root/usr/bin/evpn_show_client" $cmd)
  # shellcheck disable=SC2086
  want=$(EVPN_SYSDB="$work/reference.db" "$build/l2vpn/show/evpn_show_client" $cmd)
  [ "$got" = "$want" ] || fail "packaged client, command '$cmd', differs from the build's"
  [ -n "$got" ] || fail "packaged client, command '$cmd', printed nothing"
done
# The packaged shell runs the packaged client beside it.
got=$(env -u EVPN_SYSDB "$work/root/usr/bin/evpn_shell" -c "show evpn evi 100 detail")
want=$(EVPN_SYSDB="$work/reference.db" "$build/l2vpn/show/evpn_show_client" -d -M 64 5)
[ "$got" = "$want" ] || fail "packaged shell differs from the build's client"
grep -aq "@(#)evpn_show_client $(dpkg-deb -f "$deb" Version)" "$work/root/usr/bin/evpn_show_client" ||
  fail "the client does not carry the package's version"
[ "$("$work/root/usr/bin/evpn_sysdb" --version)" = "evpn_sysdb $(dpkg-deb -f "$deb" Version)" ] ||
  fail "evpn_sysdb --version is not the package's version"

# ---- the collector's unit: the packaged program, the installed store, its own user ----
unit="$work/root/usr/lib/systemd/system/evpn-collector.service"
[ -f "$unit" ] || fail "package: no evpn-collector.service"
exec_start=$(sed -n 's/^ExecStart=//p' "$unit")
read -r -a words <<<"$exec_start"
[ -x "$work/root${words[0]}" ] || fail "unit: ExecStart runs ${words[0]}, not in the package"
installed_db=$(env -u EVPN_SYSDB "$work/root/usr/bin/evpn_sysdb" --help | sed -n 's/^Here: \(.*\) (installed)\.$/\1/p')
[[ " $exec_start " == *" --db ${installed_db#"$work/root"} "* ]] ||
  fail "unit: ExecStart '$exec_start' does not keep the installed store ${installed_db#"$work/root"}"
user=$(sed -n 's/^User=//p' "$unit")
grep -q "^u $user " "$work/root/usr/lib/sysusers.d/evpn-show.conf" || fail "unit: user '$user' is not made by sysusers.d"
grep -qx "StateDirectory=$(basename "$(dirname "${installed_db#"$work/root"}")")" "$unit" ||
  fail "unit: StateDirectory is not the store's folder"
dpkg-deb -I "$deb" postinst | grep -q systemd-sysusers || fail "package: postinst does not make the user"
# systemd's own check, on a copy that runs the unpacked program (this machine
# has no /usr/bin/evpn_sysdb, and its systemd no system to boot).
if command -v systemd-analyze >/dev/null; then
  sed "s|^ExecStart=${words[0]}|ExecStart=$work/root${words[0]}|" "$unit" >"$work/evpn-collector.service"
  out=$(systemd-analyze verify --man=no "$work/evpn-collector.service" 2>&1) && [ -z "$out" ] || fail "unit: $out"
fi

# ---- man pages render without a warning ----
for page in "$work"/root/usr/share/man/man1/*.1*; do
  warnings=$(MANWIDTH=80 man --warnings -E UTF-8 -l "$page" 2>&1 >/dev/null)
  [ -z "$warnings" ] || fail "man $page: $warnings"
  [ "$(MANWIDTH=80 man -E UTF-8 -l "$page" 2>/dev/null | wc -l)" -gt 40 ] || fail "man $page: too short"
done

# ---- bash completion: subcommands, dump listings from the registry, gen kinds ----
complete_words() {
  PATH="$work/root/usr/bin:$PATH" bash -c '
    source "$1"; shift
    COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _evpn_sysdb; printf "%s\n" "${COMPREPLY[@]}"' \
    _ "$work/root/usr/share/bash-completion/completions/evpn_sysdb" "$@"
}
[ "$(complete_words evpn_sysdb du)" = dump ] || fail "completion: du -> $(complete_words evpn_sysdb du)"
complete_words evpn_sysdb dump evpn_e | grep -x evpn_evi >/dev/null || fail "completion: dump evpn_e"
complete_words evpn_sysdb gen --ig | grep -x -- --igmp >/dev/null || fail "completion: gen --ig"
[ -z "$(complete_words evpn_sysdb gen --routes "")" ] || fail "completion: a number follows --routes"

# ---- the shell's completion asks the shell's grammar; the client's is its options and numbers ----
complete_shell() {
  PATH="$work/root/usr/bin:$PATH" bash -c '
    source "$1"; shift
    COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _evpn_shell; printf "%s\n" "${COMPREPLY[@]}"' \
    _ "$work/root/usr/share/bash-completion/completions/evpn_shell" "$@"
}
complete_shell evpn_shell -c '"show evpn ev' | grep -x 'show evpn evi ' >/dev/null ||
  fail "shell completion: show evpn ev -> $(complete_shell evpn_shell -c '"show evpn ev')"
complete_shell evpn_shell -c 'show evpn evi mac | c' | grep -x 'show evpn evi mac | count ' >/dev/null ||
  fail "shell completion: | c"
[ -z "$(complete_shell evpn_shell -c 'show nothing ')" ] || fail "shell completion after a wrong word"
client_words=$(PATH="$work/root/usr/bin:$PATH" bash -c '
    source "$1"; COMP_WORDS=(evpn_show_client -U ""); COMP_CWORD=2; _evpn_show_client; printf "%s\n" "${COMPREPLY[@]}"
    COMP_WORDS=(evpn_show_client -d 1); COMP_CWORD=2; _evpn_show_client; printf "%s\n" "${COMPREPLY[@]}"' \
    _ "$work/root/usr/share/bash-completion/completions/evpn_show_client")
[ "$client_words" = "$(printf 'standby\n1\n10\n11\n12\n13')" ] || fail "client completion: $client_words"
complete_words evpn_sysdb gen-bmp --wi | grep -x -- --withdraw >/dev/null || fail "completion: gen-bmp --wi"
echo "package test: ok ($(basename "$deb"), Depends: $depends)"
