#pragma once

#include <QFrame>
#include <QObject>
#include <QPointer>

#include <vector>

class LongPressButton;
class QMouseEvent;

// The editor's small pop-up panels: frames inside the window that open just
// below their button, stay inside the window when it is resized and close on
// a press anywhere outside them and their button. A pop-up is open exactly
// while it is not hidden.
class PopupHost : public QObject {
    Q_OBJECT

public:
    explicit PopupHost(QWidget *window);

    // A hidden pop-up frame of the window, styled with its own object name.
    QFrame *create(const QString &objectName, QWidget *anchor, int frameStyle,
                   const QString &moreStyle = QString());
    // A framed pop-up that a long press on its button opens and closes.
    QFrame *createHeld(const QString &objectName, LongPressButton *button);

    void open(QFrame *popup);
    void close(QFrame *popup);
    void toggle(QFrame *popup);
    static bool isOpen(const QFrame *popup) { return popup && !popup->isHidden(); }
    // Sizes an open pop-up to its contents again and puts it back in place.
    void refit(QFrame *popup);
    // Puts every open pop-up back in place, after the window changed size.
    void placeAll();

    // A press that closes a pop-up does nothing else on this widget (the
    // canvas: closing a pop-up must not paint).
    void setShielded(QWidget *widget) { m_shielded = widget; }
    // Sees every mouse event of the application (from the window's filter).
    // True when the event is used up by closing a pop-up.
    bool filterMouse(QObject *watched, QMouseEvent *event);

private:
    struct Entry {
        QPointer<QFrame> popup;
        QPointer<QWidget> anchor;
    };

    const Entry *find(const QFrame *popup) const;
    void place(const Entry &entry);
    bool closeOutside(const QPoint &globalPos);
    bool shields(QObject *watched, const QPoint &globalPos) const;

    QWidget *m_window;
    std::vector<Entry> m_entries;
    QPointer<QWidget> m_shielded;
    bool m_swallowUntilRelease = false;
};
