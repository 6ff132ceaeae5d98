#pragma once

#include <QPushButton>
#include <QTimer>

// A push button that, held down with the left button for 333 ms, emits
// longPressed() instead of clicking. A long press never clicks or toggles.
class LongPressButton : public QPushButton {
    Q_OBJECT

public:
    static constexpr int LongPressMs = 333;

    explicit LongPressButton(QWidget *parent = nullptr);
    explicit LongPressButton(const QString &text, QWidget *parent = nullptr);

    // Draws a small triangle in the bottom-right corner; call update() after
    // changing it.
    bool showIndicator = false;

signals:
    void longPressed();

protected:
    void mousePressEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void paintEvent(QPaintEvent *event) override;

private:
    void onTimeout();

    QTimer m_timer;
    bool m_fired = false;
};
