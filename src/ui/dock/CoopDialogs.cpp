#include "dock/CoopDialogs.h"

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
    hint->setStyleSheet(QStringLiteral("color: palette(mid);"));
    return hint;
}

} // namespace

CoopModeDialog::CoopModeDialog(QWidget *parent, const QString &nickname) : QDialog(parent)
{
    setWindowTitle(QStringLiteral("Pennoria: Draw Co-op"));
    setWindowFlags(CloseOnlyFlags);
    setMinimumWidth(320);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(14, 14, 14, 12);
    layout->setSpacing(10);

    layout->addWidget(new QLabel(QStringLiteral("Nickname:"), this));
    m_nicknameEdit = new QLineEdit(nickname, this);
    m_nicknameEdit->setMaxLength(32);
    m_nicknameEdit->setPlaceholderText(QStringLiteral("Your name"));
    layout->addWidget(m_nicknameEdit);

    auto *row = new QHBoxLayout;
    auto *hostButton = new QPushButton(QStringLiteral("Host"), this);
    auto *joinButton = new QPushButton(QStringLiteral("Join"), this);
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

    QLabel *hint = hintLabel(
        QStringLiteral("You must port forward on port %1 in order to host.").arg(CoopPort), this);
    hint->setWordWrap(true);
    layout->addWidget(hint);
}

QString CoopModeDialog::nickname() const
{
    const QString trimmed = m_nicknameEdit->text().trimmed();
    return trimmed.isEmpty() ? QStringLiteral("Anon") : trimmed;
}

JoinDialog::JoinDialog(QWidget *parent, const QString &address) : QDialog(parent)
{
    setWindowTitle(QStringLiteral("Join Co-op Session"));
    setWindowFlags(CloseOnlyFlags);
    setMinimumWidth(300);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(14, 14, 14, 12);
    layout->setSpacing(8);

    layout->addWidget(new QLabel(QStringLiteral("Host's public IP address:"), this));
    m_addressEdit = new QLineEdit(address, this);
    m_addressEdit->setPlaceholderText(QStringLiteral("e.g. 203.0.113.7"));
    layout->addWidget(m_addressEdit);
    layout->addWidget(hintLabel(QStringLiteral("Connects on port %1.").arg(CoopPort), this));

    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    buttons->button(QDialogButtonBox::Ok)->setText(QStringLiteral("Join"));
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    layout->addWidget(buttons);
}

QString JoinDialog::address() const
{
    return m_addressEdit->text().trimmed();
}
