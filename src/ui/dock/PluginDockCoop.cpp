// The dock's co-op button: its states and the host, join and leave dialogs.
#include "dock/PluginDock.h"

#include "common/Text.h"
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

namespace {} // namespace

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
        tip =
            session.isWelcomed() ? uiText("Dock.Tooltip.CoopConnected") : uiText("Coop.Connecting");
        break;
    case CoopSession::Role::Host:
        style = Green;
        tip = uiText("Dock.Tooltip.CoopHosting").arg(m_host->coopPort());
        break;
    case CoopSession::Role::None:
        tip = uiText("Dock.Tooltip.Coop");
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
        auto *setup = new SetupDialog(mainWindow, uiText("Setup.CoopDefaultName"));
        setup->setWindowTitle(uiText("Setup.CoopTitle"));
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
        QMessageBox box(QMessageBox::Information, CoopMessages::title(),
                        uiText("Coop.HostingStarted").arg(m_host->coopPort()), QMessageBox::Ok,
                        mainWindow);
        box.setInformativeText(options.password.isEmpty()
                                   ? uiText("Coop.OpenSession")
                                   : uiText("Coop.PasswordShown").arg(options.password));
        box.exec();
    } else {
        QMessageBox::warning(mainWindow, CoopMessages::title(),
                             uiText("Coop.HostFailed").arg(session.lastError()));
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
