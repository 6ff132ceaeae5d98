#pragma once

#include <QColor>
#include <QIcon>
#include <QPixmap>
#include <QSize>
#include <QString>

// How much of the icon a disabled button shows.
constexpr double DisabledIconOpacity = 0.35;

// An icon from SVG text in which every "ICON_COLOR" stands for color. The
// drawing keeps its aspect ratio and is centred in a pixmap of exactly size.
// Its disabled form is the same drawing faded to DisabledIconOpacity.
QIcon tintedSvgIcon(const QString &svgText, const QColor &color, const QSize &size);
QPixmap tintedSvgPixmap(const QString &svgText, const QColor &color, const QSize &size);

// A pixmap of size filled with Qt::transparent, for icons painted by code.
QPixmap transparentPixmap(const QSize &size);
