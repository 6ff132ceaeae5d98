#pragma once

#include <QObject>

#include <functional>

// Calls back on every left-button press on the watched object; the event
// still goes on to its receiver.
class ClickCatcher : public QObject {
    Q_OBJECT

public:
    ClickCatcher(std::function<void()> callback, QObject *parent);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    std::function<void()> m_callback;
};
