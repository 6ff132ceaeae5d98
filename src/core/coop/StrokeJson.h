#pragma once

#include "engine/Stroke.h"

#include <QJsonObject>
#include <QJsonValue>

namespace coop {

constexpr int MaxStrokePoints = 200000;
constexpr double MaxCoordinate = 100000.0;
constexpr double MinStrokeWidth = 0.1;
constexpr double MaxStrokeWidth = 1000.0;

// The wire form of a stroke: "pts", "col", "w", "er", "fl", "sh", "st", "sm",
// "se", "sa".
QJsonObject strokeToJson(const Stroke &stroke);

// Reads a stroke object received from a peer. Returns false (and leaves *out
// untouched) when the value is not an object, "pts" is missing, not an array,
// of odd length, empty or too long, or holds a NaN or infinite coordinate.
// Everything else is defaulted or clamped.
bool strokeFromJson(const QJsonValue &value, Stroke *out);

// Roughly how many pixels painting the stroke costs, for budgets: a brush its
// path's length plus one width, times the width (off-picture parts are not
// free: the path is still stroked); a fill or a shape may cover the whole
// picture of pictureArea pixels.
double paintCost(const Stroke &stroke, double pictureArea);

} // namespace coop
