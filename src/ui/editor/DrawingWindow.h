#pragma once

#include "source/EditorSource.h"

#include <QColor>
#include <QDialog>
#include <QString>

#include <memory>

class CanvasWidget;
class ColorPickerWidget;
class CoopUsersPopup;
class LayerPanel;
class LongPressButton;
class QButtonGroup;
class QFrame;
class QLabel;
class QPushButton;
class QSlider;
class QSpinBox;
class QTimer;
class QToolButton;
class QVBoxLayout;
struct EditorSettings;

// The editor window: one canvas under a row of controls, with small pop-up
// panels under their buttons. Edits the canvas of one source, or, in co-op
// mode, the shared co-op picture.
class DrawingWindow : public QDialog {
    Q_OBJECT

public:
    static constexpr int LiveUpdateIntervalMs = 33;
    static constexpr int SaveDelayMs = 1500;
    static constexpr int PreviewIntervalMs = 100;

    // source may be null (no source to keep in step, nothing saved).
    DrawingWindow(std::unique_ptr<EditorSource> source, QWidget *parent, bool coopMode);
    ~DrawingWindow() override;

    bool isCoopMode() const { return m_coopMode; }
    const QString &canvasKey() const { return m_canvasKey; }

    // Read access for tests.
    CanvasWidget *canvas() const { return m_canvas; }
    QColor brushColor() const { return m_color; }
    QToolButton *colorButton() const { return m_colorButton; }
    QToolButton *undoButton() const { return m_undoButton; }
    QToolButton *redoButton() const { return m_redoButton; }
    QSlider *brushSlider() const { return m_brushSlider; }
    QSpinBox *brushSpin() const { return m_brushSpin; }
    QButtonGroup *toolGroup() const { return m_toolGroup; }
    LongPressButton *fillButton() const { return m_fillButton; }
    LongPressButton *jitterButton() const { return m_jitterButton; }
    QPushButton *shapesButton() const { return m_shapesButton; }
    LongPressButton *previewButton() const { return m_previewButton; }
    QToolButton *layersButton() const { return m_layersButton; }
    QPushButton *clearButton() const { return m_clearButton; }
    QFrame *colorSection() const { return m_colorSection; }
    ColorPickerWidget *colorPicker() const { return m_colorPicker; }
    QSlider *opacitySlider() const { return m_opacitySlider; }
    QLabel *opacityLabel() const { return m_opacityLabel; }
    QFrame *jitterPopup() const { return m_jitterPopup; }
    QSlider *jitterAmountSlider() const { return m_jitterAmountSlider; }
    QSpinBox *jitterAmountSpin() const { return m_jitterAmountSpin; }
    QSlider *jitterSpeedSlider() const { return m_jitterSpeedSlider; }
    QSpinBox *jitterSpeedSpin() const { return m_jitterSpeedSpin; }
    QFrame *fillPopup() const { return m_fillPopup; }
    QSlider *fillSlider() const { return m_fillSlider; }
    QSpinBox *fillSpin() const { return m_fillSpin; }
    QFrame *shapesPopup() const { return m_shapesPopup; }
    QButtonGroup *shapeTypeGroup() const { return m_shapeTypeGroup; }
    QButtonGroup *shapeModeGroup() const { return m_shapeModeGroup; }
    QPushButton *shapeEraseButton() const { return m_shapeEraseButton; }
    QFrame *previewPopup() const { return m_previewPopup; }
    QSlider *previewSlider() const { return m_previewSlider; }
    QSpinBox *previewSpin() const { return m_previewSpin; }
    QTimer *previewTimer() const { return m_previewTimer; }
    QFrame *layersPopup() const { return m_layersPopup; }
    LayerPanel *popupLayerPanel() const { return m_popupLayerPanel; }
    LayerPanel *dockedLayerPanel() const { return m_dockedLayerPanel; }
    bool isLayersPinned() const { return m_layersPinned; }
    QTimer *saveTimer() const { return m_saveTimer; }
    CoopUsersPopup *usersPopup() const { return m_usersPopup; }
    bool isUsersPopupOpen() const { return m_usersPopupOpen; }
    bool isColorSectionOpen() const { return m_colorSectionOpen; }
    bool isJitterPopupOpen() const { return m_jitterPopupOpen; }
    bool isFillPopupOpen() const { return m_fillPopupOpen; }
    bool isShapesPopupOpen() const { return m_shapesPopupOpen; }
    bool isPreviewPopupOpen() const { return m_previewPopupOpen; }
    bool isLayersPopupOpen() const { return m_layersPopupOpen; }

public slots:
    void onColorChanged(QColor color);
    void onBrushSliderChanged(int value);
    void onBrushSpinChanged(int value);
    void onJitterBtnClicked(bool checked);
    void onJitterBtnLongPress();
    void onFbBtnLongPress();
    void onShapeToolToggled(bool checked);
    void onShapeTypeChanged(int);
    void onShapeModeChanged(int);
    void onShapeEraseBtnClicked(bool checked);
    void onJitterSliderChanged(int percent);
    void onJitterSpinChanged(int percent);
    void onJitterSpeedSliderChanged(int value);
    void onJitterSpeedSpinChanged(int value);
    void onFillToleranceChanged(int value);
    void onFillToleranceSpinChanged(int value);
    void onPreviewBtnClicked(bool checked);
    void onPreviewBtnLongPress();
    void onPreviewOpacityChanged(int value);
    void onPreviewOpacitySpinChanged(int value);
    void onScenePreviewTick();
    void onClearClicked();
    void onStrokesChanged();
    void onDrawingUpdated();
    void toggleColorPicker();
    void onToolChanged(int id);
    void onOpacityChanged(int value);
    void onLayersClicked();
    void onLayerPinToggled();
    void handleSourceRemoved();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;
    bool nativeEvent(const QByteArray &eventType, void *message, qintptr *result) override;
    void resizeEvent(QResizeEvent *event) override;
    void closeEvent(QCloseEvent *event) override;
    void showEvent(QShowEvent *event) override;

public slots:
    // Escape and reject() end the dialog without a close event; the drawing
    // and the settings are kept on that road too.
    void done(int result) override;

private:
    // Keeps the settings and, for a local canvas that still has its source,
    // writes the files now. Runs once per time the window is shown.
    void finishEditing();

    // Construction (DrawingWindowControls.cpp, DrawingWindowPopups.cpp).
    QWidget *buildControlRow();
    QFrame *buildToolBox();
    QFrame *makePopup(const char *objectName, int frameStyle, const QString &moreStyle = {});
    void buildColorSection();
    void buildJitterPopup();
    void buildFillPopup();
    void buildShapesPopup();
    void buildPreviewPopup();
    void buildLayersPopup();
    void createCanvas(int width, int height);
    void loadDrawing();
    void applyInitialGeometry(const QByteArray &savedGeometry);

    // Pop-ups (DrawingWindowPopups.cpp).
    void positionPopup(QWidget *popup, QWidget *anchor);
    void openPopup(QFrame *popup, QWidget *anchor);
    void flipPopup(QFrame *popup, QWidget *anchor, bool &open);
    void closePopup(QFrame *popup, bool &open);
    void closePopupIfOutside(QFrame *popup, QWidget *anchor, bool &open, const QPoint &globalPos);
    void dismissPopupsOutside(const QPoint &globalPos);
    void relayoutLayersPopup();

    // Colour and wiggle helpers (DrawingWindowSlots.cpp).
    void applyBrushColor();
    void updateColorSwatch();
    void applyJitterAmount(int percent);
    void applyJitterSpeed(int percent);
    void updateShapesButtonIcon(int mode);

    // Shortcut routing (DrawingWindowShortcuts.cpp).
    bool routeUndoShortcut(QObject *watched, QEvent *event);

    // Settings (DrawingWindowSettings.cpp).
    void applyEditorSettings(const EditorSettings &settings);
    EditorSettings collectEditorSettings() const;

    // Files (DrawingWindowFiles.cpp).
    void saveCanvasAsync();
    void saveCanvasNow();

    // Co-op (DrawingWindowCoop.cpp).
    void setupCoop();
    void seedCoopWiggle(const EditorSettings &settings);
    void toggleUsersPopup();
    // Right edge on the Layers button's right edge, just below it.
    void placeUsersPopup();

    std::unique_ptr<EditorSource> m_source;
    bool m_closingForRemovedSource = false;
    bool m_editingFinished = false;
    QString m_canvasKey;
    CanvasWidget *m_canvas = nullptr;
    QColor m_color = Qt::black;
    QColor m_iconColor;
    QButtonGroup *m_toolGroup = nullptr;
    QToolButton *m_colorButton = nullptr;
    QToolButton *m_undoButton = nullptr;
    QToolButton *m_redoButton = nullptr;
    QSlider *m_brushSlider = nullptr;
    QSpinBox *m_brushSpin = nullptr;
    LongPressButton *m_fillButton = nullptr;
    LongPressButton *m_jitterButton = nullptr;
    QFrame *m_colorSection = nullptr;
    ColorPickerWidget *m_colorPicker = nullptr;
    QSlider *m_opacitySlider = nullptr;
    QLabel *m_opacityLabel = nullptr;
    bool m_colorSectionOpen = false;
    QFrame *m_jitterPopup = nullptr;
    QSlider *m_jitterAmountSlider = nullptr;
    QSpinBox *m_jitterAmountSpin = nullptr;
    QSlider *m_jitterSpeedSlider = nullptr;
    QSpinBox *m_jitterSpeedSpin = nullptr;
    bool m_jitterPopupOpen = false;
    QFrame *m_fillPopup = nullptr;
    QSlider *m_fillSlider = nullptr;
    QSpinBox *m_fillSpin = nullptr;
    bool m_fillPopupOpen = false;
    QPushButton *m_shapesButton = nullptr;
    QFrame *m_shapesPopup = nullptr;
    bool m_shapesPopupOpen = false;
    QButtonGroup *m_shapeTypeGroup = nullptr;
    QButtonGroup *m_shapeModeGroup = nullptr;
    QPushButton *m_shapeEraseButton = nullptr;
    LongPressButton *m_previewButton = nullptr;
    QFrame *m_previewPopup = nullptr;
    bool m_previewPopupOpen = false;
    QSlider *m_previewSlider = nullptr;
    QSpinBox *m_previewSpin = nullptr;
    QTimer *m_previewTimer = nullptr;
    QToolButton *m_layersButton = nullptr;
    QPushButton *m_clearButton = nullptr;
    QFrame *m_layersPopup = nullptr;
    bool m_layersPopupOpen = false;
    LayerPanel *m_popupLayerPanel = nullptr;
    LayerPanel *m_dockedLayerPanel = nullptr;
    bool m_layersPinned = false;
    QTimer *m_saveTimer = nullptr;
    bool m_coopMode;
    CoopUsersPopup *m_usersPopup = nullptr;
    bool m_usersPopupOpen = false;
};
