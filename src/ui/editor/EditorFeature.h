#pragma once

#include <QColor>
#include <QObject>

class CanvasWidget;
class EditorSource;
class PopupHost;
class QWidget;
struct EditorSettings;

// What every part of the editor window works with.
struct EditorContext {
    QWidget *window;
    CanvasWidget *canvas;
    EditorSource *source; // may be null
    PopupHost *popups;
    QColor iconColor; // the palette's button text, captured when the window is built
};

// One feature of the editor window: it builds its controls, owns their slots
// and keeps its own fields of the editor settings.
class EditorFeature : public QObject {
    Q_OBJECT

public:
    explicit EditorFeature(const EditorContext &context);

    virtual void applySettings(const EditorSettings &) {}
    virtual void collectSettings(EditorSettings &) const {}

protected:
    EditorContext m_context;
};
