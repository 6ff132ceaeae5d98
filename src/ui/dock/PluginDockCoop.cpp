// The dock's co-op button: its states and the host, join and leave dialogs.
#include "dock/PluginDock.h"

#include "coop/CoopPort.h"
#include "coop/CoopSession.h"
#include "dock/CoopDialogs.h"
#include "dock/CoopMessages.h"
#include "dock/SetupDialog.h"
#include "settings/CoopSettings.h"
#include "widgets/Icons.h"
#include "widgets/TintedIcon.h"

#include <QMessageBox>
#include <QPushButton>

namespace {

const QString CoopTitle = CoopMessages::title();

} // namespace

void PluginDock::updateCoopButton()
{
    static const QString Green = QStringLiteral("QPushButton { background-color: #2e8b2e; border: "
                                                "1px solid #246b24; border-radius: 4px; }");
    static const QString Amber = QStringLiteral("QPushButton { background-color: #c8861a; border: "
                                                "1px solid #9c6712; border-radius: 4px; }");

    const CoopSession &session = CoopSession::instance();
    QString style;
    QString tip;
    switch (session.role()) {
    case CoopSession::Role::Client:
        style = session.isWelcomed() ? Green : Amber;
        tip = session.isWelcomed()
                  ? QStringLiteral("Connected to a co-op session \u2014 click to leave")
                  : QStringLiteral("Connecting to host\u2026");
        break;
    case CoopSession::Role::Host:
        style = Green;
        tip =
            QStringLiteral("Hosting co-op on port %1 \u2014 click to stop").arg(m_host->coopPort());
        break;
    case CoopSession::Role::None:
        tip = QStringLiteral("Host or join a Pennoria: Draw co-op session");
        break;
    }
    const QColor iconColor =
        style.isEmpty() ? palette().color(QPalette::ButtonText) : QColor(Qt::white);
    m_coopButton->setStyleSheet(style);
    m_coopButton->setIcon(tintedSvgIcon(Icons::People, iconColor, QSize(18, 18)));
    m_coopButton->setToolTip(tip);
}

void PluginDock::onCoopButtonClicked()
{
    CoopSession &session = CoopSession::instance();
    QWidget *mainWindow = m_host->mainWindow();
    if (session.role() != CoopSession::Role::None) {
        if (CoopMessages::confirmEnd(mainWindow, session.role() == CoopSession::Role::Host))
            session.stop();
        return;
    }

    QPointer<PluginDock> self(this);
    if (m_host->findSources(CoopCanvasTypeId).isEmpty()) {
        auto *setup = new SetupDialog(mainWindow, QStringLiteral("Pennoria Co-op Canvas"));
        setup->setWindowTitle(QStringLiteral("Create Co-op Canvas"));
        const bool accepted = setup->exec() == QDialog::Accepted;
        const QString name = setup->name();
        setup->deleteLater();
        if (!self || !accepted || name.isEmpty())
            return;
        m_host->createSourceOnTop(CoopCanvasTypeId, name);
    }

    auto *dialog = new CoopModeDialog(mainWindow, CoopSettings::nickname());
    const bool accepted = dialog->exec() == QDialog::Accepted;
    if (!self || !accepted || dialog->choice() == CoopModeDialog::Choice::None) {
        dialog->deleteLater();
        return;
    }
    CoopSettings::setNickname(dialog->nickname());
    if (dialog->choice() == CoopModeDialog::Choice::Host)
        startHosting(*dialog);
    else
        askToJoin(dialog->nickname());
    dialog->deleteLater();
}

void PluginDock::startHosting(const CoopModeDialog &choices)
{
    CoopSession &session = CoopSession::instance();
    QWidget *mainWindow = m_host->mainWindow();
    CoopHostOptions options;
    options.password = choices.password();
    options.guestsMayClear = choices.guestsMayClear();
    if (session.host(choices.nickname(), m_host->coopPort(), options)) {
        QMessageBox box(
            QMessageBox::Information, CoopTitle,
            QStringLiteral("Now hosting a Pennoria: Draw Co-op server on port %1!\n\n"
                           "Please give your friends your public IP address so they can join.\n\n"
                           "If you have not port forwarded port %1 already, please do so now, "
                           "then stop and re-start the server.")
                .arg(m_host->coopPort()),
            QMessageBox::Ok, mainWindow);
        box.setInformativeText(
            options.password.isEmpty()
                ? QStringLiteral("Open session: anyone who knows your address can join.")
                : QStringLiteral("Session password: %1\nYour friends need it to join.")
                      .arg(options.password));
        box.exec();
    } else {
        QMessageBox::warning(mainWindow, CoopTitle,
                             QStringLiteral("Could not start hosting:\n") + session.lastError());
    }
}

void PluginDock::askToJoin(const QString &nickname)
{
    QPointer<PluginDock> self(this);
    auto *dialog = new JoinDialog(m_host->mainWindow(), CoopSettings::lastJoinIp());
    const bool accepted = dialog->exec() == QDialog::Accepted;
    const QString address = dialog->address();
    const QString password = dialog->password();
    dialog->deleteLater();
    if (!accepted)
        return;
    CoopSettings::setLastJoinIp(address);
    if (self && !address.isEmpty())
        CoopSession::instance().join(address, nickname, m_host->coopPort(), password);
}

void PluginDock::onConnectionError(const QString &message)
{
    updateCoopButton();
    CoopMessages::showFailure(m_host->mainWindow(), message);
}

void PluginDock::onKicked(const QString &reason)
{
    updateCoopButton();
    CoopMessages::showKick(m_host->mainWindow(), reason);
}
