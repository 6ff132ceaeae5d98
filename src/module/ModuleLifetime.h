#pragma once

class PluginDock;

// Hands the presses of every source's hotkeys to the dock (canvas or co-op
// actions by the source's type). A null dock disconnects them.
void connectSourceHotkeys(PluginDock *dock);

// Ends the module's work before the host goes away: closes the editors (each
// saves on close), waits for the canvas saves still being written, stops the
// co-op session, disconnects the hotkeys and cancels the update check.
// Running it again does nothing new.
void shutDownModule(PluginDock *dock);

// Blocks until canvas saves started earlier are written; the one place the
// module waits for them at exit.
void waitForCanvasSaves();
