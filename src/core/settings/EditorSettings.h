#pragma once

#include <QByteArray>
#include <QColor>

// The editor's tool state and window geometry, kept between sessions in the
// per-user "PennoriaDraw"/"Canvas" store. Values are as read, after the
// store's clamps; the controls apply their own ranges on top.
struct EditorSettings {
    int brushSize = 8; // not clamped: the canvas gets it as stored
    int tool = 0;      // 0 Brush, 1 Eraser, 2 Fill Bucket, 3 Shapes
    int shapeType = 0; // 0..9
    int shapeMode = 0; // 0 filled, 1 outline
    bool shapeErase = false;
    QColor color = Qt::black; // alpha always 255
    int opacity = 100;        // brush opacity, percent
    int fillTolerance = 200;  // 0..255
    int jitterAmount = 50;    // percent
    int jitterSpeed = 20;     // percent
    bool jitterEnabled = false;
    int previewOpacity = 100; // percent
    QByteArray windowGeometry;
};

// Ranges of the brush controls, which clamp the stored size for display.
constexpr int BrushSpinMinimum = 1;
constexpr int BrushSpinMaximum = 9999;
constexpr int BrushSliderMaximum = 150;

EditorSettings loadEditorSettings();

// The three wiggle keys, as the canvas source, the co-op canvas and the editor
// all read them.
struct WiggleSettings {
    bool enabled = false;
    int amount = 50; // percent
    int speed = 20;  // percent

    float amountPx() const;        // 0.1 .. 4.0
    float intervalSeconds() const; // 1/30 .. 1
};
WiggleSettings loadWiggleSettings();
// Writes only "jitterEnabled": a wiggle switched on or off without an editor.
void saveWiggleEnabled(bool enabled);
// Writes every key; a store that cannot be written is logged.
void saveEditorSettings(const EditorSettings &settings);
