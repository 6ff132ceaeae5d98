#!/usr/bin/env bash
# Makes the .deb and the .tar.gz with cpack, checks both hold the standard
# plug-in layout, unpacks the .deb into a scratch root (installing it into
# the shared build root would hand the module to every other OBS run there)
# and starts the real OBS Studio with the plug-in paths pointing into it:
# the module's start-up line and its locale must show in OBS's log.
#
#   tests/package/package-obs.sh BUILD_DIR    (run inside the root)
set -euo pipefail
BUILD="$(cd "${1:?build dir}" && pwd)"
OUT="$BUILD/package-test"
fail() { echo "PACKAGE FAIL: $*"; exit 1; }

rm -rf "$OUT"
mkdir -p "$OUT"
(cd "$BUILD" && cpack -B "$OUT/dist" >"$OUT/cpack.txt" 2>&1) || { cat "$OUT/cpack.txt"; fail "cpack"; }
DEB=$(ls "$OUT"/dist/*.deb)
TGZ=$(ls "$OUT"/dist/*.tar.gz)

MULTIARCH=$(dpkg-architecture -qDEB_HOST_MULTIARCH)
MODULE="usr/lib/$MULTIARCH/obs-plugins/obs-pennoria-draw.so"
LOCALE="usr/share/obs/obs-plugins/obs-pennoria-draw/locale/en-US.ini"
dpkg-deb -c "$DEB" | awk '{print $6}' | sed 's#^\./##; /\/$/d' | sort >"$OUT/deb-files.txt"
tar -tzf "$TGZ" | sed 's#^\./##; /\/$/d' | sort >"$OUT/tgz-files.txt"
grep -qx "$MODULE" "$OUT/deb-files.txt" || fail ".deb lacks $MODULE"
grep -qx "$LOCALE" "$OUT/deb-files.txt" || fail ".deb lacks $LOCALE"
diff -u "$OUT/deb-files.txt" "$OUT/tgz-files.txt" || fail ".tar.gz layout differs from the .deb"
dpkg-deb -f "$DEB" Depends | grep -q "obs-studio" || fail ".deb does not depend on obs-studio"

ROOT="$OUT/root"
dpkg-deb -x "$DEB" "$ROOT"
export XDG_CONFIG_HOME="$OUT/config"
mkdir -p "$XDG_CONFIG_HOME/obs-studio"
cat >"$XDG_CONFIG_HOME/obs-studio/global.ini" <<INI
[General]
FirstRun=true
EnableAutoUpdates=false
INI
export OBS_PLUGINS_PATH="$ROOT/usr/lib/$MULTIARCH/obs-plugins"
export OBS_PLUGINS_DATA_PATH="$ROOT/usr/share/obs/obs-plugins"
export LIBGL_ALWAYS_SOFTWARE=1
xvfb-run -a -s "-screen 0 1280x800x24" bash -c '
  obs --disable-shutdown-check --disable-updater --multi >"'"$OUT"'/obs-stdout.txt" 2>&1 &
  pid=$!
  sleep "${PD_PACKAGE_SECONDS:-10}"
  kill -INT "$pid" 2>/dev/null || true
  for _ in $(seq 1 60); do kill -0 "$pid" 2>/dev/null || break; sleep 0.5; done
  kill -KILL "$pid" 2>/dev/null || true
'
LOG=$(ls -t "$XDG_CONFIG_HOME"/obs-studio/logs/*.txt 2>/dev/null | head -n 1)
[ -n "$LOG" ] || fail "OBS wrote no log"
cp "$LOG" "$OUT/obs-log.txt"
grep -qF "[PD-Perf] Pennoria: Draw" "$OUT/obs-log.txt" || fail "the packaged module did not load"
grep -qF "Failed to load 'en-US' text for module: 'obs-pennoria-draw'" "$OUT/obs-log.txt" &&
  fail "the packaged locale was not found"
echo "PACKAGE OK: $(basename "$DEB"), $(basename "$TGZ"); OBS log in $OUT"
