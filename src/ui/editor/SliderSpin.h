#pragma once

#include <QString>
#include <QWidget>

class QSlider;
class QSpinBox;

// A slider and a spin box that show one value. Each follows the other with
// its signals blocked, so the pair never loops and valueChanged fires once per
// change. The spin box may reach further than the slider, which then rests at
// its end. The parts are named <name>Slider and <name>Spin.
class SliderSpin : public QWidget {
    Q_OBJECT

public:
    struct Range {
        int minimum;
        int sliderMaximum;
        int spinMaximum;
        int value;
    };
    struct Look {
        int sliderWidth;
        int spinMinimumWidth;
        QString suffix;
    };

    SliderSpin(const QString &name, const Range &range, const Look &look, QWidget *parent);

    int value() const;
    // Shows value without emitting valueChanged.
    void setValue(int value);
    // Lays out popup as one row: label, then this pair.
    void fillRow(QWidget *popup, const QString &label);

signals:
    void valueChanged(int value);

private:
    void showOnSlider(int value);

    QSlider *m_slider;
    QSpinBox *m_spin;
};
