#pragma once

#include <QString>

// The product's line icons: 24x24 SVG text in which "ICON_COLOR" stands for
// the colour; render them with tintedSvgIcon().
namespace Icons {

extern const QString Undo;
extern const QString Redo;
extern const QString Brush;
extern const QString Eraser;
extern const QString FillBucket;
extern const QString ShapesFilled;
extern const QString ShapesOutline;
extern const QString Jitter;
extern const QString Preview;
extern const QString Layers;
extern const QString Person;
extern const QString People;
extern const QString Pin;
extern const QString Eye;
extern const QString EyeOff;
extern const QString Drawing;

} // namespace Icons
