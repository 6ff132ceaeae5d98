# Shared driver of the real-OBS journeys, sourced by each journey script:
#   tests/e2e/journey/NAME.sh BUILD_DIR      (inside the root)
# Every journey runs the root's OBS Studio on a fresh profile under its own
# Xvfb display and drives it from outside with real input (xdotool), saving
# screenshots to BUILD_DIR/screenshots/journey/NAME/ and checking them by pixels.
set -eEuo pipefail
trap 'echo "FAIL ${BASH_SOURCE[0]##*/}:$LINENO: $BASH_COMMAND  (journey stopped)"' ERR
BUILD="$(cd "${1:?build dir}" && pwd)"
SRC="$(cd "$(dirname "${BASH_SOURCE[0]}")/../../.." && pwd)"
HERE="$SRC/tests/e2e/journey"
JOURNEY="$(basename "$0" .sh)"
OUT="$BUILD/screenshots/journey/$JOURNEY"
MODULE="$BUILD/src/module/obs-pennoria-draw.so"
export LIBGL_ALWAYS_SOFTWARE=1
unset QT_QPA_PLATFORM
# A run that stopped is kept beside the next one (a test that fails is run
# again), so what stopped it can still be looked at.
rm -rf "$OUT-stopped"
if [ -e "$OUT/stopped.png" ]; then mv "$OUT" "$OUT-stopped"; else rm -rf "$OUT"; fi
mkdir -p "$OUT"
[ -f "$MODULE" ] || { echo "no module at $MODULE"; exit 1; }

FAILURES=0
PIDS=()
# A check that fails is reported with the fault it catches and the journey
# goes on, so one run lists every broken step.
check() { # FAULT DESCRIPTION COMMAND...
  local fault="$1" what="$2"
  shift 2
  if "$@"; then echo "ok   [${SECONDS}s] $what"; else
    echo "FAIL [${SECONDS}s] $what  -- fault: $fault"
    FAILURES=$((FAILURES + 1))
  fi
}
die() { # the screen and its windows are kept for a look at what stopped it
  import -window root "$OUT/stopped.png" 2>/dev/null || true
  for id in $(xdotool search --onlyvisible --name "." 2>/dev/null); do
    echo "$id $(xdotool getwindowname "$id") $(geometry "$id")"
  done >"$OUT/stopped-windows.txt" 2>&1
  echo "FAIL $*  (journey stopped; see $OUT)"
  exit 1
}
finish() {
  trap - ERR
  echo "$JOURNEY: $FAILURES failed check(s); screenshots in $OUT"
  [ "$FAILURES" = 0 ]
}
cleanup() {
  local pid
  for pid in "${PIDS[@]}"; do kill -KILL "$pid" 2>/dev/null || true; done
}
trap cleanup EXIT

# One Xvfb per journey, on a display number it picks itself.
start_display() {
  local fifo="$OUT/.display"
  Xvfb -displayfd 3 -screen 0 "${1:-1920x1080}x24" -nolisten tcp 3>"$fifo" 2>/dev/null &
  PIDS+=($!)
  for _ in $(seq 1 50); do [ -s "$fifo" ] && break; sleep 0.1; done
  export DISPLAY=":$(head -n 1 "$fifo")"
  rm -f "$fifo"
}

# A fresh OBS configuration in $1 with the built module installed; $2 the
# theme id (OBS's default when empty).
new_profile() {
  "$SRC/tools/inroot/install-into-obs" "$1" "$MODULE" >/dev/null
  [ -z "${2:-}" ] || printf '[Appearance]\nTheme=%s\n' "$2" >>"$1/config/obs-studio/global.ini"
}

# Starts OBS on the profile $1 (further arguments go to OBS) and waits for its
# main window; sets OBS_PID and MAIN (the main window's id). Extra environment
# comes from the caller.
start_obs() { # PROFILE [OBS_ARGS...]
  local profile="$1"
  shift
  XDG_CONFIG_HOME="$profile/config" obs --disable-shutdown-check --disable-updater --multi "$@" \
    >"$profile/obs-stdout.txt" 2>&1 &
  OBS_PID=$!
  PIDS+=("$OBS_PID")
  MAIN=$(wait_window "Profile: " 60) || die "OBS main window did not appear"
  sleep 2
}

# Closes OBS the way a user closing its main window does and waits for a
# clean exit; the log of the run is copied to $OUT/$2.log.
stop_obs() { # PROFILE LOGNAME
  kill -INT "$OBS_PID" 2>/dev/null || true
  local status=124
  for _ in $(seq 1 60); do
    if ! kill -0 "$OBS_PID" 2>/dev/null; then
      wait "$OBS_PID" && status=0 || status=$?
      break
    fi
    sleep 0.5
  done
  kill -KILL "$OBS_PID" 2>/dev/null || true
  local log
  log=$(ls -t "$1"/config/obs-studio/logs/*.txt | head -n 1)
  cp "$log" "$OUT/$2.log"
  check "module crash or hang on exit" "$2: OBS exits cleanly (status $status)" \
    [ "$status" = 0 ]
  check "module fails to load" "$2: start-up line in the log" \
    grep -qF "[PD-Perf] Pennoria: Draw" "$OUT/$2.log"
  check "module error on a normal run" "$2: no error line names the module" \
    bash -c "! grep -iE 'error|failed' '$OUT/$2.log' | grep -v '\[PD-Update\]' | grep -iE 'pennoria|\[pd'"
}

# The id of the first visible window of process $3 (default OBS_PID) whose
# title matches the regex $1, waiting up to $2 seconds (default 20).
wait_window() { # REGEX [SECONDS] [PID]
  local id pid="${3:-${OBS_PID:-}}"
  for _ in $(seq 0 $((${2:-20} * 4))); do
    id=$(xdotool search --all --onlyvisible ${pid:+--pid "$pid"} --name "$1" 2>/dev/null |
      head -n 1 || true)
    # Found: a moment for its first paint.
    [ -n "$id" ] && { sleep 0.5 && echo "$id"; return 0; }
    sleep 0.25
  done
  return 1
}
window_gone() { # TITLE_REGEX [SECONDS]
  for _ in $(seq 1 $((${2:-5} * 4))); do
    xdotool search --all --onlyvisible ${OBS_PID:+--pid "$OBS_PID"} --name "$1" >/dev/null 2>&1 ||
      return 0
    sleep 0.25
  done
  return 1
}
window_closed() { # WINDOW_ID [SECONDS]: that very window no longer shown
  for _ in $(seq 1 $((${2:-10} * 4))); do
    xwininfo -id "$1" 2>/dev/null | grep -q IsViewable || return 0
    sleep 0.25
  done
  return 1
}

# Window geometry as "X Y W H" (absolute, root coordinates).
geometry() {
  xwininfo -id "$1" | awk '/Absolute upper-left X/{x=$NF} /Absolute upper-left Y/{y=$NF}
    /Width:/{w=$NF} /Height:/{h=$NF} END{print x, y, w, h}'
}

# The pointer to a screen position, once it is there. xdotool's --sync waits
# for the pointer to leave where it was, which takes it 16 s to give up on when
# it is already there (a second click on a button toggles its pop-up closed).
pointer_to() { # X Y
  if [ "$(xdotool getmouselocation | cut -d' ' -f1-2)" = "x:$1 y:$2" ]; then return 0; fi
  xdotool mousemove --sync "$1" "$2"
}
# Real pointer input at window-relative coordinates.
click() { # WIN X Y [BUTTON]
  local x y w h
  read -r x y w h < <(geometry "$1")
  pointer_to $((x + $2)) $((y + $3))
  xdotool click "${4:-1}"
  sleep 0.3
}
drag() { # WIN X1 Y1 X2 Y2 : a press, a path of moves, a release
  local x y w h i
  read -r x y w h < <(geometry "$1")
  pointer_to $((x + $2)) $((y + $3))
  xdotool mousedown 1
  for i in $(seq 1 12); do
    xdotool mousemove $((x + $2 + ($4 - $2) * i / 12)) $((y + $3 + ($5 - $3) * i / 12))
    sleep 0.03
  done
  xdotool mouseup 1
  sleep 0.3
}
keys() { # WIN KEY...: focuses the window, then real key presses
  xdotool windowfocus --sync "$1" 2>/dev/null || true
  shift
  xdotool key --delay 60 "$@"
  sleep 0.3
}
type_text() { # WIN TEXT
  xdotool windowfocus --sync "$1" 2>/dev/null || true
  xdotool type --delay 60 "$2"
  sleep 0.3
}

grab() { # WIN FILE: what the screen shows in the window's area (pop-ups over it too)
  import -screen -window "$1" "$2" && mogrify +repage "$2"
}
shot() { # WIN NAME -> $OUT/NAME.png
  grab "$1" "$OUT/$2.png"
}

at_least() { [ "$1" -ge "$2" ]; }
at_most() { [ "$1" -le "$2" ]; }

# The "Pennoria: Draw" entry is the last one of OBS's Docks menu. The keys
# wait for the menu to be shown: on a loaded machine it can take longer than
# the click's pause, and keys pressed before go to the main window instead.
top_windows() { xdotool search --all --onlyvisible --maxdepth 1 --pid "$OBS_PID" --name '' | wc -l; }
toggle_dock_in_menu() {
  local before
  before=$(top_windows)
  click "$MAIN" 144 12
  within 5 eval '[ "$(top_windows)" -gt "$before" ]' || true
  keys "$MAIN" Up Return
  sleep 1
}
viewable_children() {
  local c
  for c in $(xwininfo -id "$1" -children | awk '/^ +0x/{print $1}'); do
    xwininfo -id "$c" | grep -q IsViewable && echo "$c"
  done
  return 0
}
# Sets DOCK to the dock's X window and DOCK_STATE to "floating", "docked"
# or "hidden". A docked dock is a native child of the main window without a
# title of its own: it is the child that hiding it from the Docks menu unmaps
# (the menu is used twice, so the dock ends as it was).
dock_state() {
  DOCK=$(wait_window "^Pennoria: Draw\$" 0 || true)
  if [ -n "$DOCK" ] && xwininfo -id "$DOCK" -children | grep -q "Parent window id: .*root window"; then
    DOCK_STATE=floating
    return
  fi
  local before after
  before=$(viewable_children "$MAIN")
  toggle_dock_in_menu
  after=$(viewable_children "$MAIN")
  toggle_dock_in_menu
  DOCK=$(comm -23 <(sort <<<"$before") <(sort <<<"$after") | head -n 1)
  if [ -n "$DOCK" ]; then DOCK_STATE=docked; else DOCK_STATE=hidden; fi
}
# The dock's buttons: Draw (wide) and co-op (32 x 32 at the right) on one row
# at the top; sets DOCK_W, BUTTON_Y (the row's middle) and BUTTON_TOP.
find_dock_buttons() {
  local x y top bottom
  read -r x y DOCK_W _ < <(geometry "$DOCK")
  shot "$DOCK" dock
  read -r top bottom < <(python3 "$HERE/pixels.py" button-rows "$OUT/dock.png" 14)
  [ "$top" -ge 0 ] || die "no Draw button in the dock (see dock.png)"
  BUTTON_Y=$(((top + bottom) / 2)) BUTTON_TOP=$top
}
press_draw() {
  find_dock_buttons
  click "$DOCK" $((DOCK_W / 2 - 20)) "$BUTTON_Y"
}
press_coop() {
  find_dock_buttons
  click "$DOCK" $((DOCK_W - 22)) "$BUTTON_Y"
}
# The co-op button on a scene without a co-op canvas: "Create Co-op Canvas"
# confirmed (screenshot NAME when given), then the host/join dialog with the
# nickname typed. Sets MODE to that dialog.
coop_mode_dialog() { # NICKNAME [NAME]
  press_coop
  local setup
  setup=$(wait_window "^Create Co-op Canvas\$") || die "no \"Create Co-op Canvas\" dialog"
  [ -z "${2:-}" ] || { shot "$setup" "$2" && readable "$2"; }
  keys "$setup" Return
  MODE=$(wait_window "^Pennoria: Draw Co-op\$") || die "no host/join dialog"
  keys "$MODE" ctrl+a
  type_text "$MODE" "$1"
}
# The co-op button's colour beside its icon, as "R G B" (also when the
# screenshot is stored in grey levels, as a Light theme's dock can be).
coop_button_colour() {
  find_dock_buttons
  convert "$OUT/dock.png" -crop "1x1+$((DOCK_W - 33))+$((BUTTON_TOP + 4))" \
    -format '%[fx:int(255*r+0.5)] %[fx:int(255*g+0.5)] %[fx:int(255*b+0.5)]' info:
}
# Both fail on no colour at all.
is_green() { read -r r g b <<<"$1" && [ "${g:-0}" -gt 110 ] && [ "$r" -lt 90 ] && [ "$b" -lt 90 ]; }
not_green() { read -r r g b <<<"$1" && [ -n "${b:-}" ] && ! is_green "$1"; }
coop_button_green() { is_green "$(coop_button_colour)"; }
coop_button_idle() { not_green "$(coop_button_colour)"; }
# Runs a command until it succeeds, for up to SECONDS.
within() { # SECONDS COMMAND...
  local end=$((SECONDS + $1))
  shift
  until "$@"; do
    [ "$SECONDS" -lt "$end" ] || return 1
    sleep 0.5
  done
}

# Opens the editor the way a new user does: the dock's Draw button, the
# canvas name confirmed with Enter. Sets EDITOR (or dies). A second press is
# made only to go on when the first one did not open it (returns 1 then).
open_editor() {
  press_draw
  local setup
  setup=$(wait_window "^New Pennoria Canvas\$" 10) || die "no \"New Pennoria Canvas\" dialog"
  shot "$setup" setup-dialog
  keys "$setup" Return
  EDITOR=$(wait_window "^Pennoria: Draw \\[" 5) && { place_editor; return 0; }
  press_draw
  EDITOR=$(wait_window "^Pennoria: Draw \\[" 10) || die "the editor does not open"
  place_editor
  return 1
}
# The editor beside the main window at a fixed size, so the canvas maps to
# known window coordinates: 1920 x 1080 shown at 1200 x 675 from y = 85.
place_editor() {
  xdotool windowmove --sync "$EDITOR" 1100 "${EDITOR_Y:-0}" windowsize --sync "$EDITOR" 1200 800
  sleep 1
}
ROW_Y=24
# Sets TOOL_BRUSH, TOOL_ERASER, TOOL_FILL and TOOL_SHAPES to the x of those
# buttons, found from the checked Brush (call before the first tool change).
find_tools() {
  shot "$EDITOR" .tools
  mogrify -crop x44+0+0 +repage "$OUT/.tools.png"
  local x w
  read -r x w < <(python3 "$HERE/pixels.py" checked-tool "$OUT/.tools.png")
  [ "$x" -ge 0 ] || die "no checked tool button in the editor"
  TOOL_BRUSH=$x TOOL_ERASER=$((x + w + 2)) TOOL_FILL=$((x + 2 * (w + 2)))
  TOOL_SHAPES=$((x + 3 * (w + 2)))
}

# OBS's Settings, Hotkeys page, scrolled to its end (the sources' hotkeys
# come last), as a user reaches it: File > Settings (the menu's third entry),
# then the Hotkeys page in the list at the left. The dialog is placed at the
# left, clear of the editor, and tall. Sets SETTINGS.
open_hotkeys_settings() {
  click "$MAIN" 20 12
  keys "$MAIN" Down Down Down Return
  SETTINGS=$(wait_window "^Settings\$") || die "no Settings dialog"
  xdotool windowmove --sync "$SETTINGS" 0 0 windowsize --sync "$SETTINGS" 1000 1060
  sleep 0.5
  click "$SETTINGS" 47 209
  sleep 1
  xdotool mousemove --sync 300 500 click --repeat 15 --delay 30 5
  sleep 1
}
# Whether the Hotkeys page's screenshot NAME lists, under the heading HEADING,
# each of the hotkeys TEXT, read by OCR in the column of their names (x 200 to
# 452 at this size). What was read goes to NAME.ocr.txt beside it.
hotkeys_listed() { # NAME HEADING TEXT...
  local name="$1"
  shift
  convert "$OUT/$name.png" -crop 252x960+200+48 +repage "$OUT/.names.png"
  python3 "$HERE/pixels.py" listed "$OUT/.names.png" "$@" >"$OUT/$name.ocr.txt"
}

# The largest window inside the main window (below its direct children): the
# preview, which shows the program output.
preview_window() {
  local id
  id=$(xwininfo -id "$MAIN" -tree | awk '/^ {8,}0x/{split($0, a, /\)  /); split(a[2], g, /[x+]/);
    if (g[1] * g[2] > best) { best = g[1] * g[2]; id = $1 } } END{print id}')
  echo "${id:-$MAIN}"
}
preview_shot() { # NAME
  shot "$(preview_window)" "$1"
}

# Editor controls at the placed size (the colour pop-up opens under its button).
set_colour() { # '#rrggbb' : typed into the colour pop-up's hex field
  click "$EDITOR" 20 $ROW_Y
  click "$EDITOR" 88 332
  keys "$EDITOR" ctrl+a
  type_text "$EDITOR" "$1"
  keys "$EDITOR" Tab
  click "$EDITOR" 20 $ROW_Y
}
set_brush_size() {
  click "$EDITOR" 316 $ROW_Y
  keys "$EDITOR" ctrl+a
  type_text "$EDITOR" "$1"
  keys "$EDITOR" Tab
}
# Pixels of a colour in the OBS preview (fuzz 15%, so theme colours never count).
preview_count() { # SHOT_NAME '#rrggbb'
  convert "$OUT/$1.png" -alpha off -fuzz 15% -fill black +opaque "$2" -fill white -opaque "$2" \
    -format '%[fx:int(mean*w*h+0.5)]' info: | tail -n 1
}

# What a window shows below its control row since its screenshot BEFORE,
# cropped to the changed area (a pop-up): shot_changes WIN BEFORE NAME
shot_changes() {
  local top=+0+44
  sleep 0.5
  grab "$1" "$OUT/.after.png"
  local box
  box=$(convert "$2" "$OUT/.after.png" -crop "$top" -compose difference -composite \
    -threshold 1% -trim -format '%wx%h%X%Y' info:)
  convert "$OUT/.after.png" -crop "$box" +repage "$OUT/$3.png" # box: window coordinates
}

# Every text of a screenshot at least 4.5:1 against its background (WCAG AA),
# measured by pixels, and (when given) the number of rows of text, so that a
# text drawn in its background colour counts as missing. The figures go to
# NAME.contrast.txt beside it.
readable() { # NAME [ROWS]
  python3 "$HERE/pixels.py" text-contrast "$OUT/$1.png" >"$OUT/$1.contrast.txt"
  local low rows
  low=$(sed -n 's/^min //p' "$OUT/$1.contrast.txt")
  rows=$(grep -o '^band [0-9-]*' "$OUT/$1.contrast.txt" | sort -u | wc -l || true)
  check "#4 text drawn near its background colour" "$1: every text at least 4.5:1 (lowest $low)" \
    python3 -c "import sys; sys.exit(float('$low') < 4.5)"
  [ -z "${2:-}" ] || check "#4 text drawn in its background colour" \
    "$1: $2 rows of text visible (found $rows)" [ "$rows" = "$2" ]
}
