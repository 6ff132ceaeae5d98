#pragma once

#include <QString>

// Every visible text is looked up by key ("Dock.Draw", "Editor.Tooltip.Undo").
// The module points the lookup at the host's locale when it loads; without a
// host the English texts of data/locale/en-US.ini, built in, answer.
using TextLookup = const char *(*)(const char *key);

// nullptr restores the built-in English.
void setTextLookup(TextLookup lookup);

// The text for key in the current language; the key itself when unknown.
QString uiText(const char *key);
