#include "dock/SetupDialog.h"

#include <QDialogButtonBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

SetupDialog::SetupDialog(QWidget *parent, const QString &defaultName) : QDialog(parent)
{
    setModal(true);
    setFixedWidth(340);
    setWindowTitle(QStringLiteral("New Pennoria Canvas"));

    auto *layout = new QVBoxLayout(this);
    layout->setSpacing(12);
    layout->setContentsMargins(16, 16, 16, 16);

    auto *intro =
        new QLabel(QStringLiteral("<b>Create a Pennoria Canvas</b><br><small>A transparent drawing "
                                  "layer will be added to the top<br>of your current scene's "
                                  "source list.</small>"),
                   this);
    intro->setTextFormat(Qt::RichText);
    intro->setWordWrap(true);
    layout->addWidget(intro);
    layout->addSpacing(4);

    layout->addWidget(new QLabel(QStringLiteral("Source name:"), this));
    m_nameEdit = new QLineEdit(defaultName, this);
    m_nameEdit->setPlaceholderText(QStringLiteral("Enter a name for this canvas\u2026"));
    m_nameEdit->selectAll();
    layout->addWidget(m_nameEdit);
    layout->addSpacing(4);

    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    m_okButton = buttons->button(QDialogButtonBox::Ok);
    m_okButton->setText(QStringLiteral("OK \u2014 Create Canvas"));
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
