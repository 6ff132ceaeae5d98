#include "widgets/ColorPickerWidget.h"

#include "common/Text.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QLinearGradient>
#include <QMouseEvent>
#include <QPainter>
#include <QRegularExpression>
#include <QSpinBox>
#include <QVBoxLayout>

#include <algorithm>
#include <cmath>

namespace {

constexpr int AreaHeight = 220;
constexpr int HueBarWidth = 18;
constexpr int HueBarGap = 6;
enum DragTarget { DragNone = 0, DragSquare = 1, DragHue = 2 };

QSpinBox *makeChannelSpin(const char *name, QWidget *parent)
{
    auto *spin = new QSpinBox(parent);
    spin->setObjectName(QLatin1String(name));
    spin->setRange(0, 255);
    spin->setMinimumWidth(58);
    // Typed numbers apply when complete (Enter or leaving the box), so the
    // brush does not flicker through 1, 17, 171; arrow steps apply at once.
    spin->setKeyboardTracking(false);
    return spin;
}

// The hex digits of a typed colour with or without its "#"; empty when the
// text holds anything else.
QString hexDigits(const QString &text)
{
    static const QRegularExpression hex(QStringLiteral("^#?([0-9A-Fa-f]*)$"));
    const QRegularExpressionMatch match = hex.match(text.trimmed());
    return match.hasMatch() ? match.captured(1) : QString();
}

void drawFrame(QPainter &painter, const QRect &rect, const QColor &color)
{
    painter.setPen(QPen(color, 1));
    painter.setBrush(Qt::NoBrush);
    painter.drawRect(rect.adjusted(0, 0, -1, -1));
}

} // namespace

ColorPickerWidget::ColorPickerWidget(QWidget *parent) : QWidget(parent)
{
    setMinimumSize(280, 292);
    setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);

    m_redSpin = makeChannelSpin("redSpin", this);
    m_greenSpin = makeChannelSpin("greenSpin", this);
    m_blueSpin = makeChannelSpin("blueSpin", this);
    m_hexEdit = new QLineEdit(this);
    m_hexEdit->setObjectName(QStringLiteral("hexEdit"));
    m_hexEdit->setFixedWidth(80);
    m_hexEdit->setMaxLength(7);
    m_hexEdit->setPlaceholderText(QStringLiteral("#rrggbb"));

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addSpacing(224);
    auto *rgbRow = new QHBoxLayout;
    rgbRow->addWidget(new QLabel(uiText("ColorPicker.Red"), this));
    rgbRow->addWidget(m_redSpin);
    rgbRow->addWidget(new QLabel(uiText("ColorPicker.Green"), this));
    rgbRow->addWidget(m_greenSpin);
    rgbRow->addWidget(new QLabel(uiText("ColorPicker.Blue"), this));
    rgbRow->addWidget(m_blueSpin);
    rgbRow->addStretch();
    layout->addLayout(rgbRow);
    auto *hexRow = new QHBoxLayout;
    hexRow->addWidget(new QLabel(uiText("ColorPicker.Hex"), this));
    hexRow->addWidget(m_hexEdit);
    hexRow->addStretch();
    layout->addLayout(hexRow);

    for (QSpinBox *spin : {m_redSpin, m_greenSpin, m_blueSpin})
        connect(spin, &QSpinBox::valueChanged, this, &ColorPickerWidget::onSpinChanged);
    connect(m_hexEdit, &QLineEdit::textEdited, this, &ColorPickerWidget::onHexEdited);
    connect(m_hexEdit, &QLineEdit::editingFinished, this, &ColorPickerWidget::onHexFinished);

    setColor(Qt::black);
}

// The hex field loses its focus while the picker is torn down and would report
// the end of an edit to a half-destroyed picker.
ColorPickerWidget::~ColorPickerWidget()
{
    m_hexEdit->disconnect(this);
}

QRect ColorPickerWidget::squareRect() const
{
    return QRect(0, 0, width() - HueBarWidth - HueBarGap, AreaHeight);
}

QRect ColorPickerWidget::hueRect() const
{
    return QRect(width() - HueBarWidth, 0, HueBarWidth, AreaHeight);
}

void ColorPickerWidget::setColor(const QColor &color)
{
    if (!color.isValid())
        return;
    m_color = color.toRgb();
    takeHsv(m_color);
    rebuildSquare();
    rebuildHueBar();
    syncSpins();
    syncHex();
    update();
}

// Greys and black have no hue; the bar then keeps showing the previous one.
void ColorPickerWidget::takeHsv(const QColor &color)
{
    float h = 0, s = 0, v = 0;
    color.getHsvF(&h, &s, &v);
    if (h >= 0)
        m_hue = h;
    m_saturation = s;
    m_value = v;
}

void ColorPickerWidget::rebuildSquare()
{
    const QSize size = squareRect().size();
    if (size.isEmpty()) {
        m_svImage = QImage();
        return;
    }
    m_svImage = QImage(size, QImage::Format_RGB32);
    QPainter painter(&m_svImage);
    QLinearGradient across(0, 0, size.width(), 0);
    across.setColorAt(0, Qt::white);
    across.setColorAt(1, QColor::fromHsvF(float(m_hue), 1, 1));
    painter.fillRect(m_svImage.rect(), across);
    QLinearGradient down(0, 0, 0, size.height());
    down.setColorAt(0, QColor(0, 0, 0, 0));
    down.setColorAt(1, QColor(0, 0, 0, 255));
    painter.fillRect(m_svImage.rect(), down);
}

void ColorPickerWidget::rebuildHueBar()
{
    const QSize size = hueRect().size();
    m_hueImage = QImage(size, QImage::Format_RGB32);
    QPainter painter(&m_hueImage);
    QLinearGradient gradient(0, 0, 0, size.height());
    for (int i = 0; i <= 6; ++i)
        gradient.setColorAt(i / 6.0, QColor::fromHsvF(i == 6 ? 0.0f : i / 6.0f, 1, 1));
    painter.fillRect(m_hueImage.rect(), gradient);
}

void ColorPickerWidget::syncSpins()
{
    m_syncing = true;
    m_redSpin->setValue(m_color.red());
    m_greenSpin->setValue(m_color.green());
    m_blueSpin->setValue(m_color.blue());
    m_syncing = false;
}

void ColorPickerWidget::syncHex()
{
    m_syncing = true;
    m_hexEdit->setText(m_color.name().toUpper());
    m_syncing = false;
}

void ColorPickerWidget::paintEvent(QPaintEvent *)
{
    const QRect square = squareRect();
    const QRect bar = hueRect();
    // The pictures follow the widget's width.
    if (m_svImage.size() != square.size())
        rebuildSquare();
    if (m_hueImage.size() != bar.size())
        rebuildHueBar();

    QPainter painter(this);
    const QColor frame = palette().color(QPalette::Mid);

    painter.drawImage(square.topLeft(), m_svImage);
    drawFrame(painter, square, frame);
    const QPointF marker(square.x() + std::round(m_saturation * (square.width() - 1)),
                         square.y() + std::round((1.0 - m_value) * (square.height() - 1)));
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setBrush(Qt::NoBrush);
    painter.setPen(QPen(Qt::white, 1.5));
    painter.drawEllipse(marker, 5, 5);
    painter.setPen(QPen(Qt::black, 1));
    painter.drawEllipse(marker, 6, 6);
    painter.setRenderHint(QPainter::Antialiasing, false);

    painter.drawImage(bar.topLeft(), m_hueImage);
    drawFrame(painter, bar, frame);
    const int y = bar.y() + int(std::lround(m_hue * (bar.height() - 1)));
    painter.setPen(QPen(Qt::white, 2));
    painter.drawLine(bar.left(), y, bar.right(), y);
    if (y + 1 <= bar.bottom()) {
        painter.setPen(QPen(Qt::black, 1));
        painter.drawLine(bar.left(), y + 1, bar.right(), y + 1);
    }
}

void ColorPickerWidget::mousePressEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton)
        return;
    const QPoint pos = event->position().toPoint();
    if (squareRect().contains(pos)) {
        m_dragTarget = DragSquare;
        pickInSquare(pos);
    } else if (hueRect().contains(pos)) {
        m_dragTarget = DragHue;
        pickInHueBar(pos);
    }
}

void ColorPickerWidget::mouseMoveEvent(QMouseEvent *event)
{
    if (!(event->buttons() & Qt::LeftButton))
        return;
    const QPoint pos = event->position().toPoint();
    if (m_dragTarget == DragSquare)
        pickInSquare(pos);
    else if (m_dragTarget == DragHue)
        pickInHueBar(pos);
}

void ColorPickerWidget::mouseReleaseEvent(QMouseEvent *)
{
    m_dragTarget = DragNone;
}

void ColorPickerWidget::pickInSquare(const QPoint &pos)
{
    const QRect square = squareRect();
    m_saturation =
        std::clamp(double(pos.x() - square.x()) / std::max(square.width() - 1, 1), 0.0, 1.0);
    m_value =
        std::clamp(1.0 - double(pos.y() - square.y()) / std::max(square.height() - 1, 1), 0.0, 1.0);
    commit();
}

void ColorPickerWidget::pickInHueBar(const QPoint &pos)
{
    const QRect bar = hueRect();
    m_hue = std::clamp(double(pos.y() - bar.y()) / std::max(bar.height() - 1, 1), 0.0, 1.0);
    rebuildSquare();
    commit();
}

void ColorPickerWidget::commit()
{
    m_color = QColor::fromHsvF(float(m_hue), float(m_saturation), float(m_value)).toRgb();
    syncSpins();
    syncHex();
    update();
    emit colorChanged(m_color);
}

void ColorPickerWidget::onSpinChanged()
{
    if (m_syncing)
        return;
    m_color = QColor(m_redSpin->value(), m_greenSpin->value(), m_blueSpin->value(), 255);
    takeHsv(m_color);
    rebuildSquare();
    syncHex();
    update();
    emit colorChanged(m_color);
}

// While typing, only a complete six-digit colour applies: "#ff8" on the way
// to "#ff8800" is a valid short form of another colour and must not flash by.
void ColorPickerWidget::onHexEdited()
{
    if (m_syncing)
        return;
    const QString digits = hexDigits(m_hexEdit->text());
    if (digits.size() == 6)
        applyHex(QColor::fromString(QLatin1Char('#') + digits));
}

// Enter or leaving the field: a complete short or long form applies; anything
// else gives the field back the current colour.
void ColorPickerWidget::onHexFinished()
{
    const QString digits = hexDigits(m_hexEdit->text());
    if (digits.size() == 3 || digits.size() == 6)
        applyHex(QColor::fromString(QLatin1Char('#') + digits));
    syncHex();
}

void ColorPickerWidget::applyHex(const QColor &color)
{
    if (!color.isValid() || color.rgb() == m_color.rgb())
        return;
    m_color = color.toRgb();
    takeHsv(m_color);
    rebuildSquare();
    syncSpins();
    update();
    emit colorChanged(m_color);
}
