// A co-op host with the shared picture, in its own process, driven by lines
// on stdin:
//   "stroke JSON"  paint a stroke (its wire form) and share it
//   "clear"        clear the picture and share that
//   "save PATH"    write the picture as a PNG
// It reports on stdout: "hosting", "joined N", "drawn N", "received N",
// "cleared" and "saved PATH".
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

    int received = 0;
    QObject::connect(&session, &CoopSession::usersChanged, [say](const QList<CoopUser> &users) {
        say(QStringLiteral("joined %1").arg(users.size() - 1));
    });
    // Queued behind the canvas's own slot, so "received" means painted.
    QObject::connect(
        &session, &CoopSession::strokeReceived, &app,
        [&](const Stroke &, const QString &) {
            say(QStringLiteral("received %1").arg(++received));
        },
        Qt::QueuedConnection);
    if (!session.host(QStringLiteral("Host"), 42069)) {
        say(session.lastError());
        return 1;
    }
    say(QStringLiteral("hosting"));

    int drawn = 0;
    auto run = [&](const QString &text) {
        const QString command = text.section(' ', 0, 0);
        const QString argument = text.section(' ', 1);
        if (command == QLatin1String("stroke")) {
            Stroke stroke;
            const QJsonDocument json = QJsonDocument::fromJson(argument.toUtf8());
            if (!coop::strokeFromJson(json.object(), &stroke)) {
                say(QStringLiteral("bad stroke"));
                return;
            }
            canvas.addLocalStroke(stroke, CoopCanvas::DefaultFillTolerance);
            say(QStringLiteral("drawn %1").arg(++drawn));
        } else if (command == QLatin1String("clear")) {
            canvas.clearLocal();
            say(QStringLiteral("cleared"));
        } else if (command == QLatin1String("save")) {
            say((canvas.image().save(argument, "PNG") ? QStringLiteral("saved ")
                                                      : QStringLiteral("save failed ")) +
                argument);
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
