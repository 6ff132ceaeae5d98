#include "dock/CoopDialogs.h"

#include "common/Text.h"
#include "coop/CoopPort.h"

#include <QCheckBox>
#include <QDialogButtonBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

namespace {

constexpr Qt::WindowFlags CloseOnlyFlags =
    Qt::Dialog | Qt::CustomizeWindowHint | Qt::WindowTitleHint | Qt::WindowCloseButtonHint;

QLabel *hintLabel(const QString &text, QWidget *parent)
{
    auto *hint = new QLabel(text, parent);
    hint->setStyleSheet(QStringLiteral("color: palette(window-text);"));
    return hint;
}

} // namespace

CoopModeDialog::CoopModeDialog(QWidget *parent, const QString &nickname) : QDialog(parent)
{
    setWindowTitle(uiText("App.CoopTitle"));
    setWindowFlags(CloseOnlyFlags);
    setMinimumWidth(320);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(14, 14, 14, 12);
    layout->setSpacing(10);

    layout->addWidget(new QLabel(uiText("Coop.Nickname"), this));
    m_nicknameEdit = new QLineEdit(nickname, this);
    m_nicknameEdit->setMaxLength(32);
    m_nicknameEdit->setPlaceholderText(uiText("Coop.NicknamePlaceholder"));
    layout->addWidget(m_nicknameEdit);

    layout->addWidget(new QLabel(uiText("Coop.HostPassword"), this));
    m_passwordEdit = new QLineEdit(coop::randomPassword(), this);
    m_passwordEdit->setObjectName(QStringLiteral("hostPasswordEdit"));
    m_passwordEdit->setPlaceholderText(uiText("Coop.HostPasswordPlaceholder"));
    m_passwordEdit->setMaxLength(64);
    layout->addWidget(m_passwordEdit);
    m_guestsMayClearBox = new QCheckBox(uiText("Coop.GuestsMayClear"), this);
    m_guestsMayClearBox->setObjectName(QStringLiteral("guestsMayClearBox"));
    layout->addWidget(m_guestsMayClearBox);

    auto *row = new QHBoxLayout;
    auto *hostButton = new QPushButton(uiText("Coop.Host"), this);
    auto *joinButton = new QPushButton(uiText("Coop.Join"), this);
    row->addWidget(hostButton);
    row->addWidget(joinButton);
    layout->addLayout(row);
    connect(hostButton, &QPushButton::clicked, this, [this] {
        m_choice = Choice::Host;
        accept();
    });
    connect(joinButton, &QPushButton::clicked, this, [this] {
        m_choice = Choice::Join;
        accept();
    });

    QLabel *hint = hintLabel(uiText("Coop.PortForward").arg(coop::coopPort()), this);
    hint->setWordWrap(true);
    layout->addWidget(hint);
}

QString CoopModeDialog::nickname() const
{
    const QString trimmed = m_nicknameEdit->text().trimmed();
    return trimmed.isEmpty() ? uiText("Coop.Anon") : trimmed;
}

QString CoopModeDialog::password() const
{
    return m_passwordEdit->text();
}

bool CoopModeDialog::guestsMayClear() const
{
    return m_guestsMayClearBox->isChecked();
}

JoinDialog::JoinDialog(QWidget *parent, const QString &address) : QDialog(parent)
{
    setWindowTitle(uiText("Coop.JoinTitle"));
    setWindowFlags(CloseOnlyFlags);
    setMinimumWidth(300);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(14, 14, 14, 12);
    layout->setSpacing(8);

    layout->addWidget(new QLabel(uiText("Coop.HostAddress"), this));
    m_addressEdit = new QLineEdit(address, this);
    m_addressEdit->setPlaceholderText(uiText("Coop.AddressPlaceholder"));
    layout->addWidget(m_addressEdit);
    layout->addWidget(hintLabel(uiText("Coop.ConnectsOnPort").arg(coop::coopPort()), this));
    layout->addWidget(new QLabel(uiText("Coop.SessionPassword"), this));
    m_passwordEdit = new QLineEdit(this);
    m_passwordEdit->setObjectName(QStringLiteral("joinPasswordEdit"));
    m_passwordEdit->setEchoMode(QLineEdit::Password);
    m_passwordEdit->setPlaceholderText(uiText("Coop.JoinPasswordPlaceholder"));
    m_passwordEdit->setMaxLength(64);
    layout->addWidget(m_passwordEdit);

    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    buttons->button(QDialogButtonBox::Ok)->setText(uiText("Coop.Join"));
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    layout->addWidget(buttons);
}

QString JoinDialog::address() const
{
    return m_addressEdit->text().trimmed();
}

QString JoinDialog::password() const
{
    return m_passwordEdit->text();
}
