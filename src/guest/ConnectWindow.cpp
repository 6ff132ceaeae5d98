#include "ConnectWindow.h"

#include "common/Text.h"
#include "settings/CoopSettings.h"

#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

ConnectWindow::ConnectWindow(QWidget *parent) : QDialog(parent)
{
    setWindowTitle(uiText("Guest.Title"));
    setMinimumWidth(340);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(14, 14, 14, 12);
    layout->setSpacing(10);

    auto *form = new QFormLayout;
    m_addressEdit = new QLineEdit(CoopSettings::lastJoinIp(), this);
    m_addressEdit->setObjectName(QStringLiteral("addressEdit"));
    m_addressEdit->setPlaceholderText(uiText("Coop.AddressPlaceholder"));
    form->addRow(uiText("Guest.HostAddress"), m_addressEdit);
    m_nicknameEdit = new QLineEdit(CoopSettings::nickname(), this);
    m_nicknameEdit->setObjectName(QStringLiteral("nicknameEdit"));
    m_nicknameEdit->setMaxLength(32);
    m_nicknameEdit->setPlaceholderText(uiText("Coop.NicknamePlaceholder"));
    form->addRow(uiText("Coop.Nickname"), m_nicknameEdit);
    m_passwordEdit = new QLineEdit(this);
    m_passwordEdit->setObjectName(QStringLiteral("passwordEdit"));
    m_passwordEdit->setEchoMode(QLineEdit::Password);
    m_passwordEdit->setPlaceholderText(uiText("Guest.PasswordPlaceholder"));
    form->addRow(uiText("Coop.SessionPassword"), m_passwordEdit);
    layout->addLayout(form);

    m_status = new QLabel(this);
    m_status->setObjectName(QStringLiteral("statusLabel"));
    m_status->setStyleSheet(QStringLiteral("color: palette(window-text);"));
    layout->addWidget(m_status);

    auto *buttons = new QDialogButtonBox(this);
    m_joinButton = buttons->addButton(uiText("Coop.Join"), QDialogButtonBox::AcceptRole);
    m_joinButton->setObjectName(QStringLiteral("joinButton"));
    m_joinButton->setDefault(true);
    m_cancelButton = buttons->addButton(QDialogButtonBox::Close);
    m_cancelButton->setObjectName(QStringLiteral("cancelButton"));
    layout->addWidget(buttons);
    connect(m_joinButton, &QPushButton::clicked, this, &ConnectWindow::onJoinClicked);
    connect(m_cancelButton, &QPushButton::clicked, this, &ConnectWindow::onCancelClicked);
    connect(m_addressEdit, &QLineEdit::textChanged, this, &ConnectWindow::updateJoinButton);

    // The first empty field is where the user starts typing.
    if (!m_addressEdit->text().isEmpty())
        (m_nicknameEdit->text().isEmpty() ? m_nicknameEdit : m_passwordEdit)->setFocus();
    setConnecting(false);
}

void ConnectWindow::setConnecting(bool connecting)
{
    m_connecting = connecting;
    for (QLineEdit *edit : {m_addressEdit, m_nicknameEdit, m_passwordEdit})
        edit->setEnabled(!connecting);
    m_status->setText(connecting ? uiText("Coop.Connecting") : QString());
    m_cancelButton->setText(connecting ? uiText("Guest.Cancel") : uiText("Guest.Close"));
    updateJoinButton();
}

void ConnectWindow::updateJoinButton()
{
    m_joinButton->setEnabled(!m_connecting && !m_addressEdit->text().trimmed().isEmpty());
}

void ConnectWindow::onJoinClicked()
{
    const QString address = m_addressEdit->text().trimmed();
    if (m_connecting || address.isEmpty())
        return;
    QString nickname = m_nicknameEdit->text().trimmed();
    if (nickname.isEmpty())
        nickname = uiText("Coop.Anon");
    CoopSettings::setLastJoinIp(address);
    CoopSettings::setNickname(nickname);
    emit joinRequested(address, nickname, m_passwordEdit->text());
}

void ConnectWindow::onCancelClicked()
{
    if (m_connecting)
        emit cancelRequested();
    else
        reject();
}
