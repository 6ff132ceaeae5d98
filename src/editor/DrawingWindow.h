#pragma once

#include "editor/EditorSource.h"

#include <QDialog>

#include <memory>

// The editor window: one canvas under a row of controls. Edits the canvas of
// one source, or, in co-op mode, the shared co-op picture.
class DrawingWindow : public QDialog {
    Q_OBJECT

public:
    // source may be null (no source to keep in step, nothing saved).
    DrawingWindow(std::unique_ptr<EditorSource> source, QWidget *parent, bool coopMode);
    ~DrawingWindow() override;

    bool isCoopMode() const { return m_coopMode; }

private:
    std::unique_ptr<EditorSource> m_source;
    bool m_coopMode;
};
