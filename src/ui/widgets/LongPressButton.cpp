#include "widgets/LongPressButton.h"

#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>

LongPressButton::LongPressButton(QWidget *parent) : LongPressButton(QString(), parent)
{}

LongPressButton::LongPressButton(const QString &text, QWidget *parent)
    : QPushButton(text, parent), m_timer(this)
{
    m_timer.setObjectName(QStringLiteral("longPressTimer"));
    m_timer.setSingleShot(true);
    m_timer.setInterval(LongPressMs);
    // A coarse timer may fire several milliseconds early or late.
    m_timer.setTimerType(Qt::PreciseTimer);
    connect(&m_timer, &QTimer::timeout, this, &LongPressButton::onTimeout);
}

void LongPressButton::onTimeout()
{
    m_fired = true;
    emit longPressed();
}

void LongPressButton::mousePressEvent(QMouseEvent *event)
{
    if (event->button() == Qt::LeftButton) {
        m_fired = false;
        m_timer.start();
    }
    QPushButton::mousePressEvent(event);
}

void LongPressButton::mouseReleaseEvent(QMouseEvent *event)
{
    m_timer.stop();
    if (!m_fired) {
        QPushButton::mouseReleaseEvent(event);
        return;
    }
    m_fired = false;
    // Only lift the pressed look; no click, no toggle.
    setDown(false);
    event->accept();
}

void LongPressButton::paintEvent(QPaintEvent *event)
{
    QPushButton::paintEvent(event);
    if (!showIndicator)
        return;
    QColor color = palette().color(isChecked() ? QPalette::HighlightedText : QPalette::ButtonText);
    color.setAlphaF(0.65f);
    const qreal w = width();
    const qreal h = height();
    QPainterPath triangle;
    triangle.moveTo(w - 1.5, h - 6.5);
    triangle.lineTo(w - 6.5, h - 1.5);
    triangle.lineTo(w - 1.5, h - 1.5);
    triangle.closeSubpath();
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(color);
    painter.drawPath(triangle);
}
