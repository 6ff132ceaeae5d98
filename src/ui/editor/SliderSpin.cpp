#include "editor/SliderSpin.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QSignalBlocker>
#include <QSlider>
#include <QSpinBox>

#include <algorithm>

SliderSpin::SliderSpin(const QString &name, const Range &range, const Look &look, QWidget *parent)
    : QWidget(parent), m_slider(new QSlider(Qt::Horizontal, this)), m_spin(new QSpinBox(this))
{
    setObjectName(name);
    m_slider->setObjectName(name + QStringLiteral("Slider"));
    m_slider->setRange(range.minimum, range.sliderMaximum);
    m_slider->setFixedWidth(look.sliderWidth);
    m_spin->setObjectName(name + QStringLiteral("Spin"));
    m_spin->setRange(range.minimum, range.spinMaximum);
    m_spin->setSuffix(look.suffix);
    m_spin->setMinimumWidth(look.spinMinimumWidth);
    setValue(range.value);

    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(6);
    layout->addWidget(m_slider);
    layout->addWidget(m_spin);

    connect(m_slider, &QSlider::valueChanged, this, [this](int value) {
        const QSignalBlocker blocker(m_spin);
        m_spin->setValue(value);
        emit valueChanged(value);
    });
    connect(m_spin, &QSpinBox::valueChanged, this, [this](int value) {
        showOnSlider(value);
        emit valueChanged(value);
    });
}

int SliderSpin::value() const
{
    return m_spin->value();
}

void SliderSpin::setValue(int value)
{
    {
        const QSignalBlocker blocker(m_spin);
        m_spin->setValue(value);
    }
    showOnSlider(value);
}

void SliderSpin::fillRow(QWidget *popup, const QString &label)
{
    auto *layout = new QHBoxLayout(popup);
    layout->setContentsMargins(8, 6, 8, 6);
    layout->setSpacing(6);
    layout->addWidget(new QLabel(label, popup));
    layout->addWidget(this);
}

void SliderSpin::showOnSlider(int value)
{
    const QSignalBlocker blocker(m_slider);
    m_slider->setValue(std::min(value, m_slider->maximum()));
}
