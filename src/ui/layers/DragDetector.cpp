#include "layers/DragDetector.h"

#include <QMouseEvent>

DragDetector::DragDetector(int row, Callback callback, QObject *parent)
    : QObject(parent), m_row(row), m_callback(std::move(callback))
{}

bool DragDetector::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() == QEvent::MouseButtonPress && m_callback) {
        auto *mouse = static_cast<QMouseEvent *>(event);
        if (mouse->button() == Qt::LeftButton)
            m_callback(m_row, mouse->globalPosition().toPoint());
    }
    return QObject::eventFilter(watched, event);
}
