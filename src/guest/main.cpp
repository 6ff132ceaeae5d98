// pennoria-guest: joins a Pennoria: Draw co-op session from a small program of
// its own, without OBS Studio, and draws in the same editor.
#include "GuestApp.h"

#include "common/Text.h"
#include "coop/CoopSession.h"

#include <QApplication>

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("pennoria-guest"));
    QApplication::setApplicationDisplayName(uiText("Guest.Title"));
    QApplication::setDesktopFileName(QStringLiteral("pennoria-guest"));
    // The editor and the message boxes come and go; the connect window's
    // close is the end of the program.
    QApplication::setQuitOnLastWindowClosed(false);

    GuestApp guest(CoopSession::instance());
    QObject::connect(&guest, &GuestApp::finished, &app, &QApplication::quit, Qt::QueuedConnection);
    guest.start();
    return app.exec();
}
