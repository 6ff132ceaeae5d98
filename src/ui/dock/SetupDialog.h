#pragma once

#include <QDialog>

class QLineEdit;
class QPushButton;

// Asks for the name of a new canvas source. OK stays disabled while the name
// is blank.
class SetupDialog : public QDialog {
    Q_OBJECT

public:
    SetupDialog(QWidget *parent, const QString &defaultName);

    // The entered name without surrounding white space.
    QString name() const;

private:
    QLineEdit *m_nameEdit = nullptr;
    QPushButton *m_okButton = nullptr;
};
