#!/usr/bin/env bash
# Installs the build as a package would (DESTDIR) and for one user (~/.local of a scratch home),
# and uses it as a desktop would: the desktop file is valid, a .plb file is a Pelma bank and a
# .pelmasession file a Pelma session, both opening with Pelma, "pelma:" links open with Pelma, the
# installed executable finds the installed instrument, and xdg-open hands a bank file, a session
# file and a link to the installed application while it runs.
# Usage: install-and-open.sh BUILD_DIR
set -euo pipefail
build=$1
scratch=$(mktemp -d /tmp/pelma-install-XXXXXX)
app=0
cleanup() {
  [ "$app" -gt 0 ] && kill "$app" 2>/dev/null && wait "$app" 2>/dev/null
  rm -rf "$scratch"
}
trap cleanup EXIT
fail() { echo "FAIL: $*"; [ -f "$scratch/app.log" ] && cat "$scratch/app.log"; exit 1; }

# A package's layout: make install DESTDIR=... PREFIX=/usr does this.
DESTDIR=$scratch/stage cmake --install "$build" --prefix /usr >"$scratch/stage.log" || fail "staged install"
for file in bin/pelma lib/lv2/pelma.lv2/manifest.ttl lib/lv2/pelma.lv2/pelma.so \
    share/applications/pelma.desktop share/mime/packages/pelma-bank.xml \
    share/icons/hicolor/scalable/apps/pelma.svg share/metainfo/org.pelma.Pelma.metainfo.xml \
    share/doc/pelma/copyright; do
  [ -e "$scratch/stage/usr/$file" ] || fail "$file not staged"
done
# A package leaves the desktop's caches to the package manager's triggers.
[ ! -e "$scratch/stage/usr/share/mime/mime.cache" ] || fail "the MIME cache was staged"

# Installed for one user, into ~/.local of a fresh home.
export HOME=$scratch/home XDG_DATA_HOME=$scratch/home/.local/share XDG_CONFIG_HOME=$scratch/home/.config
export XDG_DATA_DIRS=/usr/share
prefix=$HOME/.local
cmake --install "$build" --prefix "$prefix" >"$scratch/install.log" || fail "install"
desktop-file-validate "$prefix/share/applications/pelma.desktop" || fail "desktop file"
export PATH=$prefix/bin:$PATH
export PELMA_BANKS_DIR=$scratch/banks PELMA_DOCUMENTS_DIR=$scratch/documents
export QT_QPA_PLATFORM= DISPLAY= WAYLAND_DISPLAY= LV2_PATH=/usr/lib/lv2
export JACK_DEFAULT_SERVER=pelma-no-such-server JACK_NO_START_SERVER=1
printf 'pelma-bank 1\nname = Installed Test\n[One]\ncutoff = 300\nend\n' >"$scratch/my sounds.plb"
printf '{\n    "format": "pelma-session",\n    "version": 1\n}\n' >"$scratch/song.pelmasession"

type=$(xdg-mime query filetype "$scratch/my sounds.plb")
[ "$type" = application/x-pelma-bank ] || fail "a .plb file is $type"
type=$(gio info -a standard::content-type "$scratch/my sounds.plb" | sed -n 's/.*content-type: //p')
[ "$type" = application/x-pelma-bank ] || fail "gio says a .plb file is $type"
type=$(xdg-mime query filetype "$scratch/song.pelmasession")
[ "$type" = application/x-pelma-session ] || fail "a .pelmasession file is $type"
for kind in application/x-pelma-bank application/x-pelma-session x-scheme-handler/pelma; do
  handler=$(xdg-mime query default $kind)
  [ "$handler" = pelma.desktop ] || fail "$kind opens with '$handler'"
done
"$prefix/bin/pelma" --list-instruments | grep -q $'^Pelma\turn:pelma:synth' ||
  fail "the installed application does not find the installed instrument"

# The running application takes what the desktop opens.
"$prefix/bin/pelma" --seconds 60 >"$scratch/app.log" 2>&1 &
app=$!
for _ in $(seq 100); do grep -q "GOT IT" "$scratch/app.log" && break; sleep 0.1; done
grep -q "GOT IT" "$scratch/app.log" || fail "the installed application did not start"
# xdg-open only opens files for a graphical session; the display is never used, because the
# launch it starts hands its URL over before it opens one.
DISPLAY=:99 xdg-open "$scratch/my sounds.plb" || fail "xdg-open of a bank file"
for _ in $(seq 100); do grep -q "Pelma: banks: Factory, Installed Test" "$scratch/app.log" && break; sleep 0.1; done
grep -q "Pelma: banks: Factory, Installed Test" "$scratch/app.log" || fail "the instrument did not list the bank"
[ -e "$scratch/banks/my sounds.plb" ] || fail "the bank did not reach the bank folder"
grep -q "Handle open url file://$scratch/my%20sounds.plb" "$scratch/app.log" || fail "bank file"
[ "$(grep -c BanksUpdated "$scratch/app.log")" = 1 ] || fail "BanksUpdated not logged once"

DISPLAY=:99 xdg-open "pelma:shop/fresh.plb" || fail "xdg-open of a pelma: link"
for _ in $(seq 50); do grep -q "Handle open url pelma:shop/fresh.plb" "$scratch/app.log" && break; sleep 0.1; done
grep -q "Handle open url pelma:shop/fresh.plb" "$scratch/app.log" || fail "pelma: link"
DISPLAY=:99 xdg-open "$scratch/song.pelmasession" || fail "xdg-open of a session file"
for _ in $(seq 50); do grep -q "Session opened from $scratch/song.pelmasession" "$scratch/app.log" && break; sleep 0.1; done
grep -q "Session opened from $scratch/song.pelmasession" "$scratch/app.log" || fail "session file"
echo "installed for a user in $prefix; a bank file, a session file and a pelma: link opened through xdg-open"
