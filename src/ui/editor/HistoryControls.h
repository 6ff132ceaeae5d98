#pragma once

#include "editor/EditorFeature.h"

class QToolButton;

// Undo and redo: the two buttons of the tool row, and the chords Ctrl+Z,
// Ctrl+Y and Ctrl+Shift+Z claimed for the canvas whenever the editor is the
// active window, whatever widget has the focus, before any shortcut of the
// host application can take them. Watches the keys of the whole application.
class HistoryControls : public EditorFeature {
    Q_OBJECT

public:
    explicit HistoryControls(const EditorContext &context);

    QToolButton *undoButton() const { return m_undo; }
    QToolButton *redoButton() const { return m_redo; }

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    QToolButton *m_undo;
    QToolButton *m_redo;
};
