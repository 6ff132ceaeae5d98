// A co-op host with the shared picture, in its own process, driven by lines
// on stdin:
//   "stroke JSON"  paint a stroke (its wire form) and share it
//   "save PATH"    write the picture, with everything received so far, as PNG
// Its one argument is the session password. It reports on stdout:
// "hosting PORT", "received N from NICK", "drawn N", "saved PATH".
#include "coop/CoopCanvas.h"
#include "coop/CoopSession.h"
#include "coop/StrokeJson.h"

#include <QCoreApplication>
#include <QJsonDocument>
#include <QSocketNotifier>
#include <QTextStream>

#include <unistd.h>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QTextStream out(stdout);
    auto say = [&out](const QString &line) { out << line << Qt::endl; };
    CoopSession &session = CoopSession::instance();
    CoopCanvas &canvas = CoopCanvas::instance();

    int received = 0, drawn = 0;
    QObject::connect(&session, &CoopSession::strokeReceived,
                     [&](const Stroke &, const QString &from) {
                         say(QStringLiteral("received %1 from %2").arg(++received).arg(from));
                     });
    CoopHostOptions options;
    options.password = app.arguments().value(1);
    if (!session.host(QStringLiteral("Host"), 0, options)) {
        say(session.lastError());
        return 1;
    }
    say(QStringLiteral("hosting %1").arg(session.hostPort()));

    auto run = [&](const QString &text) {
        const QString command = text.section(' ', 0, 0);
        const QString argument = text.section(' ', 1);
        if (command == QLatin1String("stroke")) {
            Stroke stroke;
            coop::strokeFromJson(QJsonDocument::fromJson(argument.toUtf8()).object(), &stroke);
            canvas.addLocalStroke(stroke, CoopCanvas::DefaultFillTolerance);
            say(QStringLiteral("drawn %1").arg(++drawn));
        } else if (command == QLatin1String("save")) {
            canvas.snapshot(&app, [say, argument](const QImage &picture) {
                say((picture.save(argument, "PNG") ? QStringLiteral("saved ")
                                                   : QStringLiteral("save failed ")) +
                    argument);
            });
        }
    };

    // Raw reads: several lines may arrive in one read.
    QByteArray pending;
    QSocketNotifier input(STDIN_FILENO, QSocketNotifier::Read);
    QObject::connect(&input, &QSocketNotifier::activated, [&] {
        char chunk[1 << 16];
        const ssize_t got = ::read(STDIN_FILENO, chunk, sizeof chunk);
        if (got <= 0) {
            app.quit();
            return;
        }
        pending.append(chunk, got);
        qsizetype end;
        while ((end = pending.indexOf('\n')) >= 0) {
            run(QString::fromUtf8(pending.left(end)).trimmed());
            pending.remove(0, end + 1);
        }
    });
    return app.exec();
}
