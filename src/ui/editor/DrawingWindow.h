#pragma once

#include "editor/EditorFeature.h"
#include "settings/EditorSettings.h"
#include "source/EditorSource.h"

#include <QDialog>
#include <QList>
#include <QString>

#include <memory>

class CanvasWidget;
class PopupHost;
class QTimer;

// The editor: one canvas under a row of controls, with small pop-up panels
// under their buttons. It edits the picture of its source, a canvas source or
// the shared co-op picture, and keeps that source showing what is drawn. The
// window only composes its features (colour, brush size, tools, fill, shapes,
// wiggle, scene preview, layers or co-op users, undo and redo), each of which
// builds its own controls and keeps its own settings.
class DrawingWindow : public QDialog {
    Q_OBJECT

public:
    static constexpr int LiveUpdateIntervalMs = 33;
    static constexpr int SaveDelayMs = 1500;

    // source may be null (nothing to keep in step, nothing saved).
    DrawingWindow(std::unique_ptr<EditorSource> source, QWidget *parent);
    ~DrawingWindow() override;

    // Edits a picture shared with others rather than a canvas of its own.
    bool isCoopMode() const { return m_source && m_source->coop(); }

public slots:
    void onClearClicked();
    void onStrokesChanged();
    void onDrawingUpdated();
    void handleSourceRemoved();
    // Escape and reject() end the dialog without a close event; the drawing
    // and the settings are kept on that road too.
    void done(int result) override;

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;
    bool nativeEvent(const QByteArray &eventType, void *message, qintptr *result) override;
    void resizeEvent(QResizeEvent *event) override;
    void closeEvent(QCloseEvent *event) override;
    void showEvent(QShowEvent *event) override;

private:
    void buildFeatures();
    void applyInitialGeometry(const QByteArray &savedGeometry);
    // Keeps the settings and, for a canvas that still has its source, writes
    // the files now. Runs once per time the window is shown.
    void finishEditing();
    void loadDrawing();
    void saveCanvasAsync();
    void saveCanvasNow();

    std::unique_ptr<EditorSource> m_source;
    QString m_canvasKey;
    bool m_closingForRemovedSource = false;
    bool m_editingFinished = false;
    CanvasWidget *m_canvas = nullptr;
    PopupHost *m_popups = nullptr;
    QList<EditorFeature *> m_features;
    EditorSettings m_loadedSettings;
    QTimer *m_saveTimer = nullptr;
};
