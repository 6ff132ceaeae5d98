#!/usr/bin/env bash
# Journey: the streamer deletes the canvas source from OBS (select it, Delete,
# Yes) while its editor is open: the editor closes and no canvas file is
# written after.
source "$(dirname "$0")/lib.sh"
start_display 3000x1080
P="$OUT/profile"
new_profile "$P"
start_obs "$P"
dock_state
[ "$DOCK_STATE" != hidden ] || { toggle_dock_in_menu && dock_state; }
open_editor || true
set_brush_size 40
set_colour '#00ff00'
drag "$EDITOR" 150 200 1050 300
sleep 2 # the canvas files of that stroke are written

# Select the source by clicking it in OBS's preview, where it covers the
# whole picture, then Delete and confirm.
read -r _ _ w h < <(geometry "$MAIN")
preview_shot 01-before-delete
touch "$OUT/.marker"
click "$MAIN" $((w / 2)) $((h / 4))
keys "$MAIN" Delete
confirm=$(wait_window "Confirm|Remove" 5) || die "OBS asked nothing after Delete"
shot "$confirm" 02-confirm-remove
keys "$confirm" Return
sleep 1
preview_shot 03-after-delete
check "Delete did not remove the source (the journey itself)" "the drawing left OBS's preview" \
  at_most "$(preview_count 03-after-delete '#00ff00')" 50
check "#1 the editor outlives its deleted source" "deleting the source closes the editor" \
  window_gone "^Pennoria: Draw \\[" 5
# Whoever kept drawing in a leftover editor would rewrite the files.
if xdotool search --onlyvisible --name "^Pennoria: Draw \\[" >/dev/null 2>&1; then
  drag "$EDITOR" 150 500 1050 600
  shot "$EDITOR" 04-leftover-editor
fi
sleep 2
check "#1 a deleted source's canvas files keep being rewritten" \
  "no canvas file is written after the source is deleted" \
  [ -z "$(find "$P/config/PennoriaDraw" -name 'canvas*' -newer "$OUT/.marker")" ]
stop_obs "$P" run
finish
