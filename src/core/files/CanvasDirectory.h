#pragma once

#include <QString>

// The per-canvas folder beside the "Canvas" settings file, named by the
// sanitised key (the source UUID). An empty key gives the base folder.
QString canvasDirectory(const QString &key);

// Keeps letters, digits, '_', '-' and '.'; everything else becomes '_'.
QString sanitisedCanvasKey(const QString &key);
