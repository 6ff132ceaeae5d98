#pragma once

#include <QColor>
#include <QImage>
#include <QWidget>

class QLineEdit;
class QSpinBox;

// Saturation/value square with a hue bar beside it, and spin boxes and a hex
// field below. Every change made by the user is emitted as colorChanged;
// setColor() never emits. Alpha is not edited here.
class ColorPickerWidget : public QWidget {
    Q_OBJECT

public:
    explicit ColorPickerWidget(QWidget *parent = nullptr);
    ~ColorPickerWidget() override;

    void setColor(const QColor &color);
    QColor color() const { return m_color; }

signals:
    void colorChanged(const QColor &color);

private slots:
    void onSpinChanged();
    void onHexEdited();
    void onHexFinished();

protected:
    void paintEvent(QPaintEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;

private:
    QRect squareRect() const;
    QRect hueRect() const;
    void applyHex(const QColor &color);
    void takeHsv(const QColor &color);
    void rebuildSquare();
    void rebuildHueBar();
    void pickInSquare(const QPoint &pos);
    void pickInHueBar(const QPoint &pos);
    void commit();
    void syncSpins();
    void syncHex();

    QImage m_svImage;
    QImage m_hueImage;
    double m_hue = 0.0;
    double m_saturation = 0.0;
    double m_value = 0.0;
    QColor m_color;
    bool m_syncing = false;
    int m_dragTarget = 0;
    QSpinBox *m_redSpin;
    QSpinBox *m_greenSpin;
    QSpinBox *m_blueSpin;
    QLineEdit *m_hexEdit;
};
