#include "dock/SetupDialog.h"

#include "common/Text.h"

#include <QDialogButtonBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

SetupDialog::SetupDialog(QWidget *parent, const QString &defaultName) : QDialog(parent)
{
    setModal(true);
    setFixedWidth(340);
    setWindowTitle(uiText("Setup.Title"));

    auto *layout = new QVBoxLayout(this);
    layout->setSpacing(12);
    layout->setContentsMargins(16, 16, 16, 16);

    auto *intro = new QLabel(uiText("Setup.Intro"), this);
    intro->setTextFormat(Qt::RichText);
    intro->setWordWrap(true);
    layout->addWidget(intro);
    layout->addSpacing(4);

    layout->addWidget(new QLabel(uiText("Setup.SourceName"), this));
    m_nameEdit = new QLineEdit(defaultName, this);
    m_nameEdit->setPlaceholderText(uiText("Setup.NamePlaceholder"));
    m_nameEdit->selectAll();
    layout->addWidget(m_nameEdit);
    layout->addSpacing(4);

    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    m_okButton = buttons->button(QDialogButtonBox::Ok);
    m_okButton->setText(uiText("Setup.Ok"));
    layout->addWidget(buttons);

    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(m_nameEdit, &QLineEdit::textChanged, this,
            [this](const QString &text) { m_okButton->setEnabled(!text.trimmed().isEmpty()); });
    m_okButton->setEnabled(!defaultName.trimmed().isEmpty());
    m_nameEdit->setFocus();
}

QString SetupDialog::name() const
{
    return m_nameEdit->text().trimmed();
}
