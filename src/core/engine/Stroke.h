#pragma once

#include <QColor>
#include <QMetaType>
#include <QPointF>
#include <QVector>

// One drawn action: a brush or eraser path, a fill seed or a shape drag.
// Copied by value through signals and over the co-op wire.
struct Stroke {
    QVector<QPointF> points; // canvas pixels, in input order
    QColor color;            // invalid by default
    float width = 8.0f;
    bool eraser = false;
    bool fill = false;  // points[0] is the integer seed pixel
    bool shape = false; // points[0] drag start, points[1] drag end
    int shapeType = 0;  // ShapeType
    int shapeMode = 0;  // 1 = outline, anything else = filled
    bool shapeErase = false;
    int arrowDirection = 0; // 0 right, 1 down, 2 left, 3 up
};

Q_DECLARE_METATYPE(Stroke)

enum class Tool : int { Brush = 0, Eraser = 1, FillBucket = 2, Shapes = 3 };

enum ShapeType : int {
    ShapeRectangle = 0,
    ShapeEllipse,
    ShapeTriangle,
    ShapeDiamond,
    ShapeStar,
    ShapePentagon,
    ShapeHexagon,
    ShapeArrow,
    ShapeHeart,
    ShapeCross,
    ShapeTypeCount
};

constexpr int ShapeModeOutline = 1;
