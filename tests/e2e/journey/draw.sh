#!/usr/bin/env bash
# Journey: a new user's first drawing. Fresh profile, the dock on first start,
# one Draw press, the source's hotkeys in OBS's Settings, a stroke, a colour
# change, a shape and a fill that reach OBS's preview, undo and redo by
# shortcut, and the drawing after a restart.
source "$(dirname "$0")/lib.sh"
GREEN='#00ff00' MAGENTA='#ff00ff' BLUE='#0000ff'
start_display 3000x1080
P="$OUT/profile"
new_profile "$P"
start_obs "$P"
shot "$MAIN" 01-first-start

dock_state
check "#2 the dock hidden on a fresh profile" "the dock is visible on first start" \
  [ "$DOCK_STATE" != hidden ]
check "#2 the dock floats over the preview" "the dock is docked in the main window" \
  [ "$DOCK_STATE" = docked ]
# Going on as the user would: Docks > Pennoria: Draw.
[ "$DOCK_STATE" != hidden ] || { toggle_dock_in_menu && dock_state; }
[ -n "$DOCK" ] || die "no dock to press Draw in"

opened=0
open_editor && opened=1
check "#3 the first Draw press only creates the source" \
  "one Draw press creates the source and opens the editor" [ "$opened" = 1 ]
shot "$EDITOR" 02-editor
find_tools

# The source's hotkeys as OBS's Settings lists them, names as in en-US.ini.
open_hotkeys_settings
shot "$SETTINGS" 02-settings-hotkeys
check "the source's hotkeys not registered with OBS, or their names not translated" \
  "Settings > Hotkeys lists the canvas hotkeys under \"Pennoria Canvas\"" \
  hotkeys_listed 02-settings-hotkeys "Pennoria Canvas" "Open the drawing editor" \
  "Clear the active layer" "Undo" "Redo" "Wiggle on" "Wiggle off"
keys "$SETTINGS" Escape
window_gone "^Settings\$" || die "Escape does not close OBS's Settings"

set_brush_size 40
set_colour "$GREEN"
drag "$EDITOR" 150 200 1050 200
set_colour "$MAGENTA"
click "$EDITOR" "$TOOL_SHAPES" $ROW_Y # opens the shapes pop-up: Rectangle, Filled
shot "$EDITOR" 03-shapes-popup
click "$EDITOR" "$TOOL_SHAPES" $ROW_Y
drag "$EDITOR" 400 350 800 600
sleep 1
preview_shot 04-stroke-and-shape
set_colour "$BLUE"
click "$EDITOR" "$TOOL_FILL" $ROW_Y
click "$EDITOR" 600 475
sleep 1
shot "$EDITOR" 05-editor-filled
preview_shot 05-filled
check "stroke or colour lost on the way to the source" "the green stroke is in OBS's preview" \
  at_least "$(preview_count 04-stroke-and-shape "$GREEN")" 2500
check "shapes do not reach the source" "the magenta rectangle is in OBS's preview" \
  at_least "$(preview_count 04-stroke-and-shape "$MAGENTA")" 15000
check "fill does not reach the source" "the fill turned the rectangle blue in OBS's preview" \
  at_least "$(preview_count 05-filled "$BLUE")" 15000

keys "$EDITOR" ctrl+z
sleep 1
preview_shot 06-undone
check "Ctrl+Z not routed to the editor" "Ctrl+Z takes the fill back in OBS's preview" \
  at_most "$(preview_count 06-undone "$BLUE")" 1000
check "undo loses the shape under the fill" "after Ctrl+Z the rectangle is magenta again" \
  at_least "$(preview_count 06-undone "$MAGENTA")" 15000
keys "$EDITOR" ctrl+y
sleep 1
preview_shot 07-redone
check "Ctrl+Y not routed to the editor" "Ctrl+Y brings the fill back in OBS's preview" \
  at_least "$(preview_count 07-redone "$BLUE")" 15000

click "$EDITOR" "$TOOL_ERASER" $ROW_Y
# Only the eraser drag's lines count: opening the editor and the fill log some too.
composites=$(grep -c 'FlatComposite' "$(ls -t "$P"/config/obs-studio/logs/*.txt | head -n 1)" || true)
drag "$EDITOR" 950 200 1050 200 # the end of the stroke
sleep 2 # the canvas files are written 1.5 s after the last change
stop_obs "$P" first-run
composites=$(($(grep -c 'FlatComposite' "$OUT/first-run.log" || true) - composites))
check "#9 a log line per eraser move" "one eraser drag logs at most 2 FlatComposite lines ($composites)" \
  at_most "$composites" 2
check "#9 every shortcut logged many times over" "Ctrl+Z and Ctrl+Y log at most 3 lines each" \
  at_most "$(grep -c '\[PD-Undo\]' "$OUT/first-run.log")" 6
start_obs "$P"
sleep 2
preview_shot 08-after-restart
check "the drawing is not saved or not loaded" "after a restart the stroke is in the preview" \
  at_least "$(preview_count 08-after-restart "$GREEN")" 2500
check "the last change is not saved on exit" "after a restart the fill is in the preview" \
  at_least "$(preview_count 08-after-restart "$BLUE")" 15000
stop_obs "$P" second-run
finish
