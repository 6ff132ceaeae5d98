#include "layers/ClickCatcher.h"

#include <QMouseEvent>

ClickCatcher::ClickCatcher(std::function<void()> callback, QObject *parent)
    : QObject(parent), m_callback(std::move(callback))
{}

bool ClickCatcher::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() == QEvent::MouseButtonPress &&
        static_cast<QMouseEvent *>(event)->button() == Qt::LeftButton && m_callback)
        m_callback();
    return QObject::eventFilter(watched, event);
}
