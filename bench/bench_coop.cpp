#include "BenchDrawing.h"
#include "BenchSummary.h"

#include "coop/CoopProtocol.h"
#include "coop/CoopSession.h"
#include "coop/StrokeJson.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QJsonObject>
#include <QTcpSocket>
#include <QThread>
#include <QTimer>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <vector>

namespace {

constexpr int Clients = 16;
constexpr int SegmentsPerSecond = 60;
constexpr int Seconds = 10;

qint64 nowNs()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

// Sixteen clients speaking the protocol over raw sockets on one worker thread:
// hello, answer pings, then a two-point segment each 1/60 s per client,
// staggered, each stamped with its send time under an extra key that the host
// relays untouched. Every relayed segment received gives one latency.
class Swarm : public QObject {
public:
    quint16 port = 0;
    std::vector<qint64> latenciesNs;
    int sent = 0;
    int welcomed = 0;
    bool failed = false;

    void run()
    {
        for (int i = 0; i < Clients; ++i) {
            auto client = std::make_unique<Client>();
            client->socket = new QTcpSocket(this);
            Client *c = client.get();
            connect(c->socket, &QTcpSocket::connected, this, [c] {
                // As the session's own client socket does.
                c->socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
                c->socket->write(
                    coop::encodeFrame(QJsonObject{{"t", "hello"}, {"nick", "bench"}, {"ver", 1}}));
            });
            connect(c->socket, &QTcpSocket::readyRead, this, [this, c] { read(*c); });
            c->socket->connectToHost(QStringLiteral("127.0.0.1"), port);
            m_clients.push_back(std::move(client));
        }
        QEventLoop wait;
        QTimer deadline;
        deadline.setSingleShot(true);
        connect(&deadline, &QTimer::timeout, &wait, &QEventLoop::quit);
        deadline.start(60000);
        m_onWelcomed = [&wait, this] {
            if (welcomed == Clients)
                wait.quit();
        };
        wait.exec();
        if (welcomed < Clients) {
            failed = true;
            return;
        }
        // Let the joins' user lists settle before measuring.
        QTimer::singleShot(500, &wait, &QEventLoop::quit);
        wait.exec();
        latenciesNs.clear();

        const qint64 period = 1000000000LL / SegmentsPerSecond;
        const qint64 start = nowNs();
        std::vector<qint64> due(Clients);
        for (int i = 0; i < Clients; ++i)
            due[size_t(i)] = start + period * i / Clients;
        const qint64 end = start + qint64(Seconds) * 1000000000LL;
        QTimer tick;
        tick.setTimerType(Qt::PreciseTimer);
        tick.setInterval(1);
        connect(&tick, &QTimer::timeout, this, [&] {
            const qint64 now = nowNs();
            if (now >= end) {
                tick.stop();
                QTimer::singleShot(500, &wait, &QEventLoop::quit); // drain
                return;
            }
            for (int i = 0; i < Clients; ++i) {
                while (due[size_t(i)] <= now) {
                    send(*m_clients[size_t(i)], i);
                    due[size_t(i)] += period;
                }
            }
        });
        tick.start();
        wait.exec();
    }

private:
    struct Client {
        QTcpSocket *socket = nullptr;
        coop::FrameDecoder rx;
        bool welcomed = false;
        int sequence = 0;
    };

    void send(Client &c, int index)
    {
        Stroke segment;
        segment.color = QColor(20, 40, 200);
        segment.width = 8;
        const float x = float(100 + index * 50), y = float(100 + (c.sequence++ % 500));
        segment.points = {QPointF(x, y), QPointF(x + 3, y + 2)};
        QJsonObject message{{"t", "stroke"}, {"stroke", coop::strokeToJson(segment)}};
        message.insert("bench_ts", double(nowNs()));
        c.socket->write(coop::encodeFrame(message));
        ++sent;
    }

    void read(Client &c)
    {
        c.rx.append(c.socket->readAll());
        QJsonObject message;
        while (c.rx.next(&message) == coop::FrameDecoder::Result::Message) {
            const QString type = message.value("t").toString();
            if (type == "stroke") {
                const double ts = message.value("bench_ts").toDouble(0);
                if (ts > 0)
                    latenciesNs.push_back(nowNs() - qint64(ts));
            } else if (type == "ping") {
                c.socket->write(
                    coop::encodeFrame(QJsonObject{{"t", "pong"}, {"ts", message.value("ts")}}));
            } else if (type == "welcome" && !c.welcomed) {
                c.welcomed = true;
                ++welcomed;
                if (m_onWelcomed)
                    m_onWelcomed();
            }
        }
    }

    std::vector<std::unique_ptr<Client>> m_clients;
    std::function<void()> m_onWelcomed;
};

double percentileMs(std::vector<qint64> values, double p)
{
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    const size_t index = std::min(values.size() - 1, size_t(p * double(values.size())));
    return double(values[index]) / 1e6;
}

const QImage &welcomeCanvas()
{
    static const QImage canvas = [] {
        QImage flat = drawnLayer(11u, 120);
        return flat;
    }();
    return canvas;
}

void coopRelay(benchmark::State &state)
{
    for (auto _ : state) {
        CoopSession host;
        host.setCanvasProvider([] { return welcomeCanvas(); });
        quint16 port = 0;
        for (quint16 candidate = 42169; candidate < 42189 && !port; ++candidate)
            if (host.host(QStringLiteral("bench-host"), candidate))
                port = candidate;
        if (!port) {
            state.SkipWithError("no free port for the co-op host");
            return;
        }
        QThread thread;
        Swarm *swarm = new Swarm;
        swarm->port = port;
        swarm->moveToThread(&thread);
        QEventLoop wait;
        QObject::connect(&thread, &QThread::started, swarm, [swarm, &thread] {
            swarm->run();
            thread.quit();
        });
        QObject::connect(&thread, &QThread::finished, &wait, &QEventLoop::quit);
        int received = 0;
        QObject::connect(&host, &CoopSession::strokeReceived, &host,
                         [&received](const Stroke &, const QString &) { ++received; });
        thread.start();
        wait.exec();
        thread.wait();
        char line[512];
        if (swarm->failed) {
            std::snprintf(line, sizeof line, "coop_relay_16_clients: clients were not welcomed");
        } else {
            const double p50 = percentileMs(swarm->latenciesNs, 0.50);
            const double p99 = percentileMs(swarm->latenciesNs, 0.99);
            const double worst = percentileMs(swarm->latenciesNs, 1.0);
            std::snprintf(line, sizeof line,
                          "coop_relay_16_clients (host CoopSession on port %u, raw-socket "
                          "clients on one thread): %d segments sent, %d received by the host, "
                          "%zu relayed deliveries (expected %d); latency p50 %.2f ms, p99 "
                          "%.2f ms, max %.2f ms [target p99 < 5 ms: %s]",
                          unsigned(port), swarm->sent, received, swarm->latenciesNs.size(),
                          swarm->sent * (Clients - 1), p50, p99, worst,
                          p99 < 5.0 ? "met" : "NOT MET");
        }
        BenchSummary::addLine(line);
        delete swarm;
        host.stop();
    }
}

void welcomeEncode(benchmark::State &state)
{
    BenchSummary::setTarget("coop_welcome_encode_1080p", {150.0, 0.0});
    const QImage &canvas = welcomeCanvas();
    for (auto _ : state) {
        QJsonObject welcome{{"t", "welcome"}, {"id", 1}};
        welcome.insert("canvas", coop::encodeCanvas(canvas));
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
