#pragma once

#include "engine/Stroke.h"

#include <QImage>
#include <QPainterPath>
#include <QRect>
#include <QSize>

class QPainter;

// Live brush strokes longer than this are baked into the layer.
constexpr int BakeThreshold = 80;
// Points left in the live stroke after a bake.
constexpr int BakeKeptTail = 20;
// A move closer than this (squared canvas pixels) to the last point is dropped.
constexpr float MinSampleSpacingSquared = 4.0f;

// Quadratic curves through the midpoints of a point list, mapped by
// (x*sx + ox, y*sy + oy). Empty for fewer than two points.
QPainterPath smoothedPath(const QVector<QPointF> &points, qreal sx = 1.0, qreal sy = 1.0,
                          qreal ox = 0.0, qreal oy = 0.0);

// The round-capped, round-joined pen every brush, eraser and outline uses.
QPen strokePen(const QColor &color, qreal width);

// Paints a brush, eraser or shape stroke on an open painter (antialiasing is
// the caller's), setting the composition mode, pen and brush it needs. Fill
// strokes and strokes without points draw nothing here.
void drawStroke(QPainter &painter, const Stroke &stroke);

// The part of a canvasSize layer that painting the brush or eraser stroke can
// change (its points' bounds grown by half the pen width and a pixel of
// antialiasing). Fills and shapes give the whole canvas.
QRect strokeBounds(const Stroke &stroke, const QSize &canvasSize);

// Paints one stroke of any kind into a layer image; fills use tolerance.
void paintStroke(QImage &layer, const Stroke &stroke, int fillTolerance);

// Clears the layer and paints every stroke in order.
void replayStrokes(QImage &layer, const QVector<Stroke> &strokes, int fillTolerance);

// Paints the older part of a long live brush stroke into the layer and keeps
// only its tail in `current`. Returns true when it baked. Logs the bake.
bool bakeLiveStroke(QImage &layer, Stroke &current, float brushSize, const QSize &canvasSize);
