#pragma once

#include <QObject>
#include <QPoint>

#include <functional>

// Reports a left-button press on the watched row with the row's number and
// the press's global position; the event still goes on to its receiver.
class DragDetector : public QObject {
    Q_OBJECT

public:
    using Callback = std::function<void(int row, const QPoint &globalPos)>;

    DragDetector(int row, Callback callback, QObject *parent);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    int m_row;
    Callback m_callback;
};
