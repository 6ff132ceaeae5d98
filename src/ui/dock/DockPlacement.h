#pragma once

class QMainWindow;

// Gives the main window's dock frame of that object name at least 280 x 120
// and centres it on the available area of the main window's screen. Does
// nothing when there is no such frame or no screen.
void placeDockFrame(QMainWindow *mainWindow, const char *objectName);
