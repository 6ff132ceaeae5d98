#include "dock/CoopMessages.h"

#include "common/Text.h"

#include <QCoreApplication>
#include <QMessageBox>
#include <QPointer>

namespace {

void showLater(QMessageBox::Icon icon, QWidget *parent, const QString &text,
               std::function<void()> closed)
{
    QPointer<QWidget> owner(parent);
    QObject *context = parent ? static_cast<QObject *>(parent) : QCoreApplication::instance();
    QMetaObject::invokeMethod(
        context,
        [icon, owner, text, closed = std::move(closed)] {
            QMessageBox box(icon, CoopMessages::title(), text, QMessageBox::Ok, owner.data());
            box.exec();
            if (closed)
                closed();
        },
        Qt::QueuedConnection);
}

} // namespace

namespace CoopMessages {

QString title()
{
    return uiText("App.CoopTitle");
}

void showFailure(QWidget *parent, const QString &message, std::function<void()> closed)
{
    showLater(QMessageBox::Warning, parent, message, std::move(closed));
}

void showKick(QWidget *parent, const QString &reason, std::function<void()> closed)
{
    showLater(QMessageBox::Information, parent, reason, std::move(closed));
}

bool confirmEnd(QWidget *parent, bool hosting)
{
    const QString question =
        hosting ? uiText("Coop.ConfirmStopHosting") : uiText("Coop.ConfirmLeave");
    return QMessageBox::question(parent, title(), question, QMessageBox::Yes | QMessageBox::No) ==
           QMessageBox::Yes;
}

} // namespace CoopMessages
