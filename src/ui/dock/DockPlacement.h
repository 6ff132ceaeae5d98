#pragma once

class QMainWindow;

// Shows the main window's dock frame of that object name docked, once per
// user: the host adds a plug-in's dock hidden and floating, so the first time
// this runs (after the host restored its window layout) a hidden frame goes
// under the host's "controlsDock", or into the right dock area when there is
// no docked controls dock, and is shown. A frame the restored layout shows,
// or one the user moved or hid later, is left alone. Returns whether it
// placed the frame.
bool showDockOnFirstStart(QMainWindow *mainWindow, const char *objectName);
