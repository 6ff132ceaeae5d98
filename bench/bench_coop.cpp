#include "BenchDrawing.h"
#include "BenchSummary.h"

#include "coop/CoopCanvas.h"
#include "coop/CoopProtocol.h"
#include "coop/CoopSession.h"
#include "coop/StrokeJson.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QFile>
#include <QHostAddress>
#include <QJsonArray>
#include <QJsonObject>
#include <QTcpSocket>
#include <QThread>
#include <QTimer>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <functional>
#include <map>
#include <memory>
#include <vector>

namespace {

qint64 nowNs()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

double percentileMs(std::vector<qint64> values, double p)
{
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    const size_t index = std::min(values.size() - 1, size_t(p * double(values.size())));
    return double(values[index]) / 1e6;
}

// Peak resident memory of this process since the last reset, in MB.
void resetPeakMemory()
{
    QFile refs(QStringLiteral("/proc/self/clear_refs"));
    if (refs.open(QIODevice::WriteOnly))
        refs.write("5");
}

// A field of /proc/self/status in MB: "VmHWM" (peak) or "VmRSS" (now).
double statusMb(const QByteArray &field)
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return 0;
    for (const QByteArray &line : status.readAll().split('\n'))
        if (line.startsWith(field + ':'))
            return line.mid(field.size() + 1).trimmed().split(' ').value(0).toDouble() / 1024.0;
    return 0;
}

Stroke segmentAt(float x, float y, float width)
{
    Stroke s;
    s.color = QColor(20, 40, 200);
    s.width = width;
    s.points = {QPointF(x, y), QPointF(x + 3, y + 2)};
    return s;
}

QByteArray strokeFrame(const Stroke &stroke, const QJsonObject &extra = {})
{
    QJsonObject message{{"t", "stroke"}, {"stroke", coop::strokeToJson(stroke)}};
    for (auto it = extra.begin(); it != extra.end(); ++it)
        message.insert(it.key(), it.value());
    return coop::encodeFrame(message);
}

// One raw-socket speaker of the protocol, honest or not.
struct Bot {
    QTcpSocket *socket = nullptr;
    coop::FrameDecoder rx{coop::MaxClientFramePayload};
    int index = 0;
    bool welcomed = false;
    bool reads = true;
    QString password;
};

// Connects bots and answers the host: hello, the password challenge (right
// or wrong), pings. What else a bot does is up to its owner.
class Crowd : public QObject {
public:
    quint16 port = 0;
    std::vector<std::unique_ptr<Bot>> bots;
    std::function<void(Bot &, const QJsonObject &)> onMessage;
    std::map<QByteArray, QByteArray> keys; // salt -> key, per password

    // A bot that does not say hello just holds its connection.
    Bot &add(const QString &from, const QString &password = QString(), bool reads = true,
             bool hello = true)
    {
        auto bot = std::make_unique<Bot>();
        bot->socket = new QTcpSocket(this);
        bot->index = int(bots.size());
        bot->password = password;
        bot->reads = reads;
        Bot *b = bot.get();
        if (!reads)
            b->socket->setReadBufferSize(1);
        connect(b->socket, &QTcpSocket::connected, this, [b, hello] {
            b->socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
            if (hello)
                b->socket->write(
                    coop::encodeFrame(QJsonObject{{"t", "hello"},
                                                  {"nick", QStringLiteral("bot%1").arg(b->index)},
                                                  {"ver", coop::ProtocolVersion}}));
        });
        if (reads)
            connect(b->socket, &QTcpSocket::readyRead, this, [this, b] { read(*b); });
        b->socket->bind(QHostAddress(from));
        b->socket->connectToHost(QStringLiteral("127.0.0.1"), port);
        bots.push_back(std::move(bot));
        return *b;
    }

    void read(Bot &b)
    {
        b.rx.append(b.socket->readAll());
        QJsonObject message;
        while (b.rx.next(&message) == coop::FrameDecoder::Result::Message) {
            const QString type = message.value("t").toString();
            if (type == "ping") {
                b.socket->write(
                    coop::encodeFrame(QJsonObject{{"t", "pong"}, {"ts", message.value("ts")}}));
            } else if (type == "challenge") {
                const QByteArray salt =
                    QByteArray::fromBase64(message.value("salt").toString().toLatin1());
                QByteArray &key = keys[salt + b.password.toUtf8()];
                if (key.isEmpty())
                    key = coop::deriveKey(b.password, salt, message.value("iter").toInt());
                const QByteArray nonce = coop::randomBytes(16);
                const QByteArray hostNonce =
                    QByteArray::fromBase64(message.value("nonce").toString().toLatin1());
                b.socket->write(coop::encodeFrame(QJsonObject{
                    {"t", "auth"},
                    {"nonce", QString(nonce.toBase64())},
                    {"proof", QString(coop::passwordProof(key, hostNonce, nonce).toBase64())}}));
            } else if (type == "welcome") {
                b.welcomed = true;
            }
            if (onMessage)
                onMessage(b, message);
        }
    }

    int connectedAndWelcomed() const
    {
        return int(std::count_if(bots.begin(), bots.end(), [](const auto &b) {
            return b->welcomed && b->socket->state() == QAbstractSocket::ConnectedState;
        }));
    }
};

// Runs body on a new thread with its own event loop until it returns.
void runOnThread(QThread &thread, std::function<void()> body)
{
    auto *starter = new QObject;
    starter->moveToThread(&thread);
    QObject::connect(&thread, &QThread::started, starter, [body, &thread, starter] {
        body();
        delete starter;
        thread.quit();
    });
    thread.start();
}

void spin(int ms)
{
    QEventLoop loop;
    QTimer::singleShot(ms, &loop, &QEventLoop::quit);
    loop.exec();
}

// Honest clients drawing a two-point segment each 1/60 s, staggered. The
// segment's points say who sent it and when, so every relayed copy that
// comes back gives one latency.
struct HonestResult {
    std::vector<qint64> latenciesNs;
    int sent = 0;
    int connected = 0;
    bool ready = false;
};

void runHonest(quint16 port, int clients, int drawMs, const QString &password,
               std::atomic<bool> *ready, HonestResult *result)
{
    Crowd crowd;
    crowd.port = port;
    std::vector<std::vector<qint64>> sentAt(static_cast<size_t>(clients));
    crowd.onMessage = [&](Bot &, const QJsonObject &message) {
        if (message.value("t").toString() != "stroke")
            return;
        const QJsonArray pts = message.value("stroke").toObject().value("pts").toArray();
        const int who = (pts.at(0).toInt() - 100) / 50;
        const int seq = pts.at(1).toInt() - 100;
        if (who >= 0 && who < clients && seq >= 0 && seq < int(sentAt[size_t(who)].size()))
            result->latenciesNs.push_back(nowNs() - sentAt[size_t(who)][size_t(seq)]);
    };
    for (int i = 0; i < clients; ++i)
        crowd.add(QStringLiteral("127.0.0.%1").arg(10 + i), password);
    for (int waited = 0; crowd.connectedAndWelcomed() < clients && waited < 30000; waited += 10)
        spin(10);
    spin(300); // let the joins' user lists settle
    result->ready = crowd.connectedAndWelcomed() == clients;
    ready->store(true);

    const qint64 period = 1000000000LL / 60;
    const qint64 start = nowNs();
    const qint64 end = start + qint64(drawMs) * 1000000;
    std::vector<qint64> due(static_cast<size_t>(clients));
    for (int i = 0; i < clients; ++i)
        due[size_t(i)] = start + period * i / clients;
    QEventLoop loop;
    QTimer tick;
    tick.setTimerType(Qt::PreciseTimer);
    tick.setInterval(1);
    QObject::connect(&tick, &QTimer::timeout, [&] {
        const qint64 now = nowNs();
        if (now >= end) {
            tick.stop();
            QTimer::singleShot(500, &loop, &QEventLoop::quit); // drain
            return;
        }
        for (int i = 0; i < clients; ++i) {
            Bot &bot = *crowd.bots[size_t(i)];
            while (due[size_t(i)] <= now) {
                due[size_t(i)] += period;
                if (bot.socket->state() != QAbstractSocket::ConnectedState)
                    continue;
                const int seq = int(sentAt[size_t(i)].size()) % 100000;
                sentAt[size_t(i)].push_back(nowNs());
                bot.socket->write(strokeFrame(segmentAt(float(100 + i * 50), float(100 + seq), 8)));
                ++result->sent;
            }
        }
    });
    tick.start();
    loop.exec();
    result->connected = crowd.connectedAndWelcomed();
}

enum class Attack {
    None,
    HugeStroke,
    WideStrokes,
    FillFlood,
    PaddedKeys,
    JoinAndPongStorm,
    SlowTrickle,
    PartialFrames,
    IdleFlood,
    SlowReaders,
    WrongPasswords,
};

struct AttackInfo {
    Attack attack;
    const char *name;
};

const AttackInfo Attacks[] = {
    {Attack::None, "none"},
    {Attack::HugeStroke, "100000-point stroke at width 1000, reconnecting"},
    {Attack::WideStrokes, "1000 random points at width 1000"},
    {Attack::FillFlood, "fill flood"},
    {Attack::PaddedKeys, "1-point strokes padded with 200 KB unknown keys"},
    {Attack::JoinAndPongStorm, "200 bots joining, pong storm"},
    {Attack::SlowTrickle, "300 slow-trickle connections"},
    {Attack::PartialFrames, "12 connections announcing 60 MiB frames"},
    {Attack::IdleFlood, "1500 idle connections"},
    {Attack::SlowReaders, "4 joined peers that never read"},
    {Attack::WrongPasswords, "password guessing"},
};

// The attacker's side, on its own thread until stop is set.
void runAttacker(quint16 port, Attack attack, const std::atomic<bool> *stop)
{
    Crowd crowd;
    crowd.port = port;
    QTimer pace;
    pace.setInterval(attack == Attack::SlowTrickle ? 1000 : 5);
    const QByteArray trickleFrame = coop::framePrefix(200 * 1024);
    Stroke huge = segmentAt(0, 0, 1000);
    huge.points.resize(100000);
    Stroke wide = segmentAt(0, 0, 1000);
    for (int i = 0; i < 1000; ++i)
        wide.points.append(QPointF(i * 37 % 1920, i * 91 % 1080));
    Stroke fill = segmentAt(500, 500, 1);
    fill.points.resize(1);
    fill.fill = true;
    const QByteArray hugeFrame = strokeFrame(huge), wideFrame = strokeFrame(wide),
                     fillFrame = strokeFrame(fill),
                     paddedFrame = strokeFrame(segmentAt(5, 5, 1),
                                               QJsonObject{{"pad", QString(200 * 1024, 'x')}});
    int round = 0;
    // Writes only while little is queued, so the attacker's own memory stays
    // out of the host's figure.
    auto pour = [](Bot &bot, const QByteArray &frame) {
        if (bot.socket->state() == QAbstractSocket::ConnectedState &&
            bot.socket->bytesToWrite() < (1 << 20))
            bot.socket->write(frame);
    };
    const QString from = QStringLiteral("127.0.0.200");
    switch (attack) {
    case Attack::None:
        break;
    case Attack::HugeStroke:
    case Attack::WideStrokes:
    case Attack::FillFlood:
    case Attack::PaddedKeys:
        for (int i = 0; i < 4; ++i)
            crowd.add(from);
        break;
    case Attack::JoinAndPongStorm:
        crowd.onMessage = [](Bot &bot, const QJsonObject &message) {
            if (message.value("t").toString() != "ping")
                return;
            QByteArray storm;
            for (int i = 0; i < 200; ++i)
                storm += coop::encodeFrame(QJsonObject{{"t", "pong"}, {"ts", message.value("ts")}});
            bot.socket->write(storm);
        };
        for (int i = 0; i < 200; ++i)
            crowd.add(QStringLiteral("127.1.%1.%2").arg(i / 200).arg(1 + i % 200));
        break;
    case Attack::SlowTrickle:
        for (int i = 0; i < 300; ++i)
            crowd.add(QStringLiteral("127.2.%1.%2").arg(i / 200).arg(1 + i % 200), QString(), true,
                      false);
        break;
    case Attack::PartialFrames:
    case Attack::IdleFlood: {
        const int count = attack == Attack::IdleFlood ? 1500 : 12;
        for (int i = 0; i < count; ++i)
            crowd.add(QStringLiteral("127.3.%1.%2").arg(i / 200).arg(1 + i % 200), QString(), true,
                      false);
        break;
    }
    case Attack::SlowReaders:
        for (int i = 0; i < 4; ++i)
            crowd.add(from, QString(), false);
        break;
    case Attack::WrongPasswords:
        crowd.add(from, QStringLiteral("guess0"));
        break;
    }
    QObject::connect(&pace, &QTimer::timeout, [&] {
        ++round;
        for (auto &bot : crowd.bots) {
            switch (attack) {
            case Attack::HugeStroke:
                if (bot->socket->state() == QAbstractSocket::UnconnectedState) {
                    bot->welcomed = false;
                    bot->rx.clear();
                    bot->socket->bind(QHostAddress(from));
                    bot->socket->connectToHost(QStringLiteral("127.0.0.1"), port);
                } else if (bot->welcomed) {
                    pour(*bot, hugeFrame);
                }
                break;
            case Attack::WideStrokes:
                pour(*bot, wideFrame);
                break;
            case Attack::FillFlood:
                pour(*bot, fillFrame);
                break;
            case Attack::PaddedKeys:
                pour(*bot, paddedFrame);
                break;
            case Attack::SlowTrickle:
                pour(*bot, QByteArray(1, trickleFrame.at(round % 4)));
                break;
            case Attack::PartialFrames:
                if (round == 1)
                    pour(*bot, coop::framePrefix(60 << 20) + QByteArray(100 * 1024, 'x'));
                break;
            case Attack::WrongPasswords:
                if (bot->socket->state() == QAbstractSocket::UnconnectedState) {
                    bot->password = QStringLiteral("guess%1").arg(round);
                    bot->rx.clear();
                    bot->socket->bind(QHostAddress(from));
                    bot->socket->connectToHost(QStringLiteral("127.0.0.1"), port);
                }
                break;
            default:
                break;
            }
        }
    });
    pace.start();
    while (!stop->load())
        spin(20);
}

struct SoakResult {
    double stallMs = 0;
    double p99Ms = 0;
    int connected = 0;
    int clients = 0;
    double peakMb = 0; // growth of the process's peak over its size before the session
    double baseMb = 0;
    int sent = 0;
    size_t deliveries = 0;
    bool ready = false;
};

SoakResult soak(Attack attack, int clients, int drawMs)
{
    // The other benchmarks' fixtures stay resident in this process: the host's
    // figure is what the session adds on top of them.
    resetPeakMemory();
    SoakResult out;
    out.baseMb = statusMb("VmRSS");
    CoopSession host;
    CoopCanvas canvas;
    QObject::connect(&host, &CoopSession::strokeReceived, &canvas, &CoopCanvas::onRemoteStroke);
    QObject::connect(&host, &CoopSession::clearReceived, &canvas, &CoopCanvas::onRemoteClear);
    host.setCanvasSnapshot([&canvas](QObject *context, std::function<void(const QImage &)> done) {
        canvas.snapshot(context, std::move(done));
    });
    canvas.onCanvasStateReceived(drawnLayer(11u, 120));
    CoopHostOptions options;
    if (attack == Attack::WrongPasswords)
        options.password = QStringLiteral("right-one");
    if (!host.host(QStringLiteral("bench-host"), 0, options))
        return out;
    const quint16 port = host.hostPort();

    std::atomic<bool> ready{false}, stop{false};
    HonestResult honest;
    QThread honestThread, attackerThread;
    runOnThread(honestThread,
                [&] { runHonest(port, clients, drawMs, options.password, &ready, &honest); });
    while (!ready.load())
        spin(10);
    if (attack != Attack::None)
        runOnThread(attackerThread, [&] { runAttacker(port, attack, &stop); });

    // The host's main thread: the longest gap between two 1 ms ticks.
    qint64 last = nowNs(), worst = 0;
    QTimer probe;
    probe.setTimerType(Qt::PreciseTimer);
    probe.setInterval(1);
    QObject::connect(&probe, &QTimer::timeout, [&] {
        const qint64 now = nowNs();
        worst = std::max(worst, now - last);
        last = now;
    });
    probe.start();
    while (honestThread.isRunning())
        spin(20);
    probe.stop();
    stop.store(true);
    attackerThread.wait();
    spin(50);

    out.stallMs = double(worst) / 1e6;
    out.p99Ms = percentileMs(honest.latenciesNs, 0.99);
    out.connected = honest.connected;
    out.clients = clients;
    out.peakMb = std::max(0.0, statusMb("VmHWM") - out.baseMb);
    out.sent = honest.sent;
    out.deliveries = honest.latenciesNs.size();
    out.ready = honest.ready;
    host.stop();
    spin(50);
    return out;
}

void coopRelay(benchmark::State &state)
{
    for (auto _ : state) {
        const SoakResult r = soak(Attack::None, 16, 10000);
        char line[512];
        std::snprintf(line, sizeof line,
                      "coop_relay_16_clients (host CoopSession and CoopCanvas, 16 raw-socket "
                      "clients on one thread, 60 segments/s each): %d sent, %zu relayed "
                      "deliveries (expected %d); p99 %.2f ms, main-thread stall %.1f ms, "
                      "%d/16 connected [target p99 < 5 ms: %s]",
                      r.sent, r.deliveries, r.sent * 15, r.p99Ms, r.stallMs, r.connected,
                      r.ready && r.p99Ms < 5.0 ? "met" : "NOT MET");
        BenchSummary::addLine(line);
    }
}

// Each attack in turn against a host with 8 honest clients drawing.
void coopSoak(benchmark::State &state)
{
    for (auto _ : state) {
        // PD_COOP_SOAK=<part of a name> runs only the attacks that match.
        const QString only = qEnvironmentVariable("PD_COOP_SOAK");
        for (const AttackInfo &info : Attacks) {
            if (info.attack == Attack::None || !QString(info.name).contains(only))
                continue;
            const SoakResult r = soak(info.attack, 8, 4000);
            const bool met = r.ready && r.stallMs <= 100 && r.p99Ms <= 100 &&
                             r.connected == r.clients && r.peakMb <= 300;
            char line[512];
            std::snprintf(
                line, sizeof line,
                "coop_soak [%s]: host main-thread stall %.1f ms, honest p99 %.2f ms "
                "(%zu deliveries), honest connected %d/%d, peak memory +%.0f MB over %.0f MB "
                "[target stall <= 100 ms, p99 <= 100 ms, all connected, <= 300 MB: %s]",
                info.name, r.stallMs, r.p99Ms, r.deliveries, r.connected, r.clients, r.peakMb,
                r.baseMb, met ? "met" : "NOT MET");
            BenchSummary::addLine(line);
        }
    }
}

void welcomeEncode(benchmark::State &state)
{
    BenchSummary::setTarget("coop_welcome_encode_1080p", {150.0, 0.0});
    const QImage canvas = drawnLayer(11u, 120);
    for (auto _ : state) {
        QJsonObject welcome{{"t", "welcome"}, {"id", 1}};
        welcome.insert("canvas", QString::fromLatin1(coop::encodeCanvas(canvas)));
        benchmark::DoNotOptimize(coop::encodeFrame(welcome));
    }
}

} // namespace

BENCHMARK(welcomeEncode)
    ->Name("coop_welcome_encode_1080p/ours")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(coopRelay)
    ->Name("coop_relay_16_clients")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(1)
    ->Repetitions(1);
BENCHMARK(coopSoak)
    ->Name("coop_soak")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(1)
    ->Repetitions(1);
