#pragma once

#include <QApplication>
#include <QPointer>
#include <QTimer>
#include <QWidget>

#include <functional>

// Drives the modal dialogs a blocking call shows: each step gets the next
// modal that appears; one that turns up when no step is left is counted as
// unexpected and closed. Only the newest script acts.
class ModalScript : public QObject {
public:
    using Step = std::function<void(QWidget *)>;

    explicit ModalScript(QList<Step> steps) : m_steps(std::move(steps))
    {
        active() = this;
        connect(&m_timer, &QTimer::timeout, this, [this] { poll(); });
        m_timer.start(20);
    }
    ~ModalScript() override
    {
        if (active() == this)
            active() = nullptr;
    }

    bool finished() const { return m_steps.isEmpty(); }
    QStringList seen() const { return m_seen; } // window titles, in order
    int unexpected() const { return m_unexpected; }

private:
    static ModalScript *&active()
    {
        static ModalScript *script = nullptr;
        return script;
    }

    void poll()
    {
        QWidget *modal = QApplication::activeModalWidget();
        if (active() != this || !modal || modal == m_last)
            return;
        m_last = modal;
        m_seen << modal->windowTitle();
        if (m_steps.isEmpty()) {
            ++m_unexpected;
            modal->close();
        } else {
            m_steps.takeFirst()(modal);
        }
    }

    QList<Step> m_steps;
    QTimer m_timer;
    QPointer<QWidget> m_last;
    QStringList m_seen;
    int m_unexpected = 0;
};
