#include "widgets/Icons.h"

namespace {

// Common frame of every line icon: 24x24, round caps and joins, 2 px strokes.
QString lineIcon(const char *body)
{
    return QStringLiteral("<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"24\" height=\"24\" "
                          "viewBox=\"0 0 24 24\" fill=\"none\" stroke=\"ICON_COLOR\" "
                          "stroke-width=\"2\" stroke-linecap=\"round\" "
                          "stroke-linejoin=\"round\">") +
           QString::fromLatin1(body) + QStringLiteral("</svg>");
}

} // namespace

namespace Icons {

const QString Undo = lineIcon("<path d=\"M8 5 3.5 9.5 8 14\"/>"
                              "<path d=\"M3.5 9.5H14a5 5 0 0 1 0 10h-3.5\"/>");

const QString Redo = lineIcon("<path d=\"M16 5l4.5 4.5L16 14\"/>"
                              "<path d=\"M20.5 9.5H10a5 5 0 0 0 0 10h3.5\"/>");

const QString Brush = lineIcon(
    // handle and ferrule
    "<path d=\"M20.6 3.4a1.6 1.6 0 0 1 0 2.3l-7.4 7.4-2.3-2.3 7.4-7.4a1.6 1.6 0 0 1 2.3 0z\"/>"
    // bristles
    "<path d=\"M10.9 10.8 8.7 10.6c-2 0-3.5 1.6-3.5 3.6 0 2-1 3.4-2.7 4.4 3 1.4 7.3 1 "
    "9.1-1.2 1.2-1.5 1.1-3.4.3-4.4z\"/>");

const QString Eraser = lineIcon(
    "<path d=\"M8.5 20.5 3.9 15.9a1.8 1.8 0 0 1 0-2.6l9.4-9.4a1.8 1.8 0 0 1 2.6 0l4.2 4.2a1.8 "
    "1.8 0 0 1 0 2.6l-9.9 9.8z\"/>"
    "<path d=\"M8.8 8.4 15.6 15.2\"/>"
    "<path d=\"M10.2 20.5H20\"/>");

const QString FillBucket = lineIcon(
    // tilted pail
    "<path d=\"M11.2 4.2 18.8 11.8 12 18.6a2 2 0 0 1-2.8 0l-4.8-4.8a2 2 0 0 1 0-2.8z\"/>"
    // the paint's surface and the handle
    "<path d=\"M4.6 11.8h14.2\"/>"
    "<path d=\"M9.4 6 6.8 3.4\"/>"
    // drip
    "<path d=\"M20.5 15.2s-1.8 2.2-1.8 3.5a1.8 1.8 0 0 0 3.6 0c0-1.3-1.8-3.5-1.8-3.5z\"/>");

const QString ShapesFilled = lineIcon(
    "<rect x=\"3\" y=\"10.5\" width=\"10.5\" height=\"10.5\" rx=\"1.5\" fill=\"ICON_COLOR\"/>"
    "<circle cx=\"16\" cy=\"8\" r=\"5\" fill=\"ICON_COLOR\"/>");

const QString ShapesOutline =
    lineIcon("<rect x=\"3\" y=\"10.5\" width=\"10.5\" height=\"10.5\" rx=\"1.5\"/>"
             "<path d=\"M13.5 12.6A5 5 0 1 0 11.2 9.5\"/>");

const QString Jitter =
    lineIcon("<path d=\"M3 7c1.5-2 3-2 4.5 0s3 2 4.5 0 3-2 4.5 0 3 2 4.5 0\"/>"
             "<path d=\"M3 12c1.5-2 3-2 4.5 0s3 2 4.5 0 3-2 4.5 0 3 2 4.5 0\"/>"
             "<path d=\"M3 17c1.5-2 3-2 4.5 0s3 2 4.5 0 3-2 4.5 0 3 2 4.5 0\"/>");

const QString Preview = lineIcon("<rect x=\"2.5\" y=\"4\" width=\"19\" height=\"14\" rx=\"2\"/>"
                                 "<path d=\"M2.5 15 7.5 10l4 4 2.5-2.5 4.5 4.5\"/>"
                                 "<circle cx=\"16\" cy=\"8.5\" r=\"1.5\"/>"
                                 "<path d=\"M8 21h8\"/>");

const QString Layers = lineIcon("<path d=\"M12 3 21 7.8 12 12.6 3 7.8z\"/>"
                                "<path d=\"M3 12.2 12 17l9-4.8\"/>"
                                "<path d=\"M3 16.4 12 21.2l9-4.8\"/>");

const QString Person = lineIcon("<circle cx=\"12\" cy=\"7.5\" r=\"4\"/>"
                                "<path d=\"M4.5 21v-1a6 6 0 0 1 6-6h3a6 6 0 0 1 6 6v1\"/>");

const QString People = lineIcon("<circle cx=\"9\" cy=\"8\" r=\"3.5\"/>"
                                "<path d=\"M2.5 20.5v-.5a5 5 0 0 1 5-5h3a5 5 0 0 1 5 5v.5\"/>"
                                "<path d=\"M15.5 4.8a3.5 3.5 0 0 1 0 6.4\"/>"
                                "<path d=\"M18.5 15.2a5 5 0 0 1 3 4.8v.5\"/>");

const QString Pin = lineIcon("<path d=\"M9 3.5h6\"/>"
                             "<path d=\"M10 3.5v5.5l-3.5 3.5v2h11v-2L14 9V3.5\"/>"
                             "<path d=\"M12 14.5V21\"/>");

const QString Eye =
    lineIcon("<path d=\"M2.5 12C5 7.3 8.3 5 12 5s7 2.3 9.5 7c-2.5 4.7-5.8 7-9.5 7s-7-2.3-9.5-7z\"/>"
             "<circle cx=\"12\" cy=\"12\" r=\"3\"/>");

const QString EyeOff =
    lineIcon("<path d=\"M2.5 12C5 7.3 8.3 5 12 5s7 2.3 9.5 7c-2.5 4.7-5.8 7-9.5 7s-7-2.3-9.5-7z\"/>"
             "<circle cx=\"12\" cy=\"12\" r=\"3\"/>"
             "<path d=\"M3.5 3.5l17 17\"/>");

const QString Drawing = lineIcon(
    // pencil
    "<path d=\"M16.2 3.3a1.9 1.9 0 0 1 2.7 0l1.8 1.8a1.9 1.9 0 0 1 0 2.7L10 18.5l-4.6 1.2 "
    "1.2-4.6z\"/>"
    "<path d=\"M14.3 5.2l4.5 4.5\"/>"
    // its line
    "<path d=\"M3 21.2c2-1.2 3.2.6 5 .2\"/>");

} // namespace Icons
