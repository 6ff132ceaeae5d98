#!/usr/bin/env bash
# Journey: every dialog and pop-up of the module in OBS's default dark theme
# and in its Light theme, each screenshot measured for text contrast.
source "$(dirname "$0")/lib.sh"
start_display 2400x1080
BASE="$OUT"
long_press() { # WIN X Y: held past the 333 ms long press
  local x y w h
  read -r x y w h < <(geometry "$1")
  pointer_to $((x + $2)) $((y + $3))
  sleep 0.2
  xdotool mousedown 1 sleep 0.7 mouseup 1
  sleep 0.3
}
popup() { # NAME HOW X: opens an editor pop-up by a click or a long press at (X, row)
  local attempt
  for attempt in 1 2; do # a press lost on a busy machine is made again
    click "$EDITOR" 145 $ROW_Y # closes any open pop-up
    sleep 0.5
    grab "$EDITOR" "$OUT/.before.png"
    if [ "$2" = long ]; then long_press "$EDITOR" "$3" $ROW_Y; else click "$EDITOR" "$3" $ROW_Y; fi
    shot_changes "$EDITOR" "$OUT/.before.png" "$1"
    [ "$(identify -format %h "$OUT/$1.png")" -lt 40 ] || break
  done
  readable "$1"
}

edit_menu() { # KEY...: OBS's Edit menu opened from the keyboard, then keys in it
  keys "$MAIN" alt+e
  sleep 0.5
  xdotool key --delay 100 "$@"
  sleep 0.5
}

for theme in dark light; do
  OUT="$BASE/$theme"
  mkdir -p "$OUT"
  P="$OUT/profile"
  new_profile "$P" "$([ $theme = light ] && echo com.obsproject.Yami.Light)"
  start_obs "$P"
  dock_state
  [ "$DOCK_STATE" != hidden ] || { toggle_dock_in_menu && dock_state; }
  find_dock_buttons
  readable dock
  open_editor || true
  readable setup-dialog
  find_tools
  read -r _ _ ew _ < <(geometry "$EDITOR")
  popup colour-popup click 20
  popup fill-popup long "$TOOL_FILL"
  popup shapes-popup click "$TOOL_SHAPES"
  popup jitter-popup long $((TOOL_SHAPES + 41))
  popup preview-popup long $((ew - 138))
  popup layers-popup click $((ew - 97))
  click "$EDITOR" 145 $ROW_Y
  # A hovered tool button: its icon on the hover colour.
  read -r ex ey _ _ < <(geometry "$EDITOR")
  pointer_to $((ex + TOOL_ERASER)) $((ey + ROW_Y))
  sleep 0.5
  shot "$EDITOR" .hover
  convert "$OUT/.hover.png" -crop "30x30+$((TOOL_ERASER - 15))+$((ROW_Y - 15))" +repage \
    "$OUT/hovered-tool.png"
  readable hovered-tool

  # A second canvas in the scene, made the way a user copies a source: the
  # canvas selected in the preview, Edit > Copy, Edit > Paste (Duplicate) (the
  # Edit menu opens on Copy, the first entry it enables). Draw then asks which.
  preview=$(preview_window)
  read -r _ _ pw ph < <(geometry "$preview")
  click "$preview" $((pw / 2)) $((ph / 2))
  edit_menu Return
  edit_menu Down Down Return
  press_draw
  chooser=$(wait_window "^Select Canvas\$" 10) || chooser=""
  check "Draw with two canvases in the scene offers no choice" "Draw asks which canvas" \
    [ -n "$chooser" ]
  if [ -n "$chooser" ]; then
    shot "$chooser" canvas-chooser
    readable canvas-chooser 3 # the question, a button per canvas
    keys "$chooser" Escape
    check "the chooser cannot be dismissed" "Escape closes the canvas chooser" \
      window_closed "$chooser" 5
  fi

  coop_mode_dialog Sam coop-setup-dialog
  shot "$MODE" host-join-dialog
  # Rows: nickname label and field, password label and field, the check box,
  # Host/Join, the port-forward hint (two lines). Focus order: nickname,
  # password, "guests may clear", Host, Join.
  readable host-join-dialog 8
  keys "$MODE" Tab Tab Tab Tab space
  join=$(wait_window "^Join Co-op Session\$") || die "no join dialog"
  type_text "$join" 192.0.2.1
  keys "$join" Tab
  type_text "$join" secret
  shot "$join" join-dialog
  # Rows: address label and field, the port hint, password label and field, Join/Cancel.
  readable join-dialog 6
  keys "$join" Escape
  stop_obs "$P" "$theme"
done
OUT="$BASE"
finish
