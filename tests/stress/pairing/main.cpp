// Makes, ends and uses pairing agents and lists of bonds at random, while phones of the stand-in daemon pair,
// the daemon restarts, and a stranger calls the agent. Looks at the end of each round whether all is well.

#include "Figures.h"
#include "LoadOptions.h"
#include "RawBusClient.h"
#include "Simulator.h"

#include <plim/peripheral.h>

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QElapsedTimer>

#include <cstdio>
#include <memory>
#include <random>

namespace {

using plim::PairingAgent;
using plim::PairingRequest;

constexpr int phones = 3;
constexpr int stepsOfARound = 200;
constexpr int quietMs = 3000; // nothing is on the way any more
constexpr int patienceMs = 30000;

/** Sends a call to the stand-in without waiting for the answer. */
void order(const QString& path, const QString& interface, const char* method,
           const QVariantList& arguments = {})
{
    QDBusMessage call = QDBusMessage::createMethodCall(QStringLiteral("org.plim.BluezSimulator"), path,
                                                       interface, QString::fromLatin1(method));
    call.setArguments(arguments);
    QDBusConnection::systemBus().send(call);
}

class Round
{
public:
    Round(std::mt19937& random, RawBusClient& stranger) : m_random(random), m_stranger(stranger) {}

    void step()
    {
        switch (pick(13)) {
        case 0:
            makeAgent();
            break;
        case 1:
            endSometimes();
            break;
        case 2:
            makeBonds();
            break;
        case 3:
            m_bonds.reset();
            break;
        case 4:
            if (m_agent) {
                m_agent->openPairingWindow(60);
            }
            break;
        case 5:
            if (m_agent) {
                m_agent->closePairingWindow();
            }
            break;
        case 6:
        case 7:
            tellPhone("Connect");
            tellPhone("Pair", {QStringLiteral("KeyboardDisplay")});
            break;
        case 8:
            tellPhone(pick(2) == 0 ? "CancelPairing" : "Disconnect");
            break;
        case 9:
            forget();
            break;
        case 10:
            decide();
            break;
        case 11:
            callAsAStranger();
            break;
        default:
            order(QStringLiteral("/org/plim/BluezSimulator"), QStringLiteral("org.plim.BluezSimulator1"),
                  pick(8) == 0 ? "Restart" : "ClearCalls");
        }
        // Sometimes the stand-in is given time to answer.
        if (pick(3) == 0) {
            m_stranger.ping(QStringLiteral("org.plim.BluezSimulator"));
        }
        QCoreApplication::processEvents();
    }

    /** A stranger's calls that were not answered with AccessDenied, or not for want of an agent. */
    int intrusions() const { return m_intrusions; }
    qint64 requests() const { return m_requests; }

private:
    int pick(int choices) { return int(m_random() % unsigned(choices)); }

    void makeAgent()
    {
        endSometimes();
        if (m_agent) {
            return; // BlueZ accepts one of each program
        }
        m_agent = std::make_unique<PairingAgent>(PairingAgent::Capability(pick(5)));
        QObject::connect(m_agent.get(), &PairingAgent::requested, m_agent.get(),
                         [this](const PairingRequest& request) {
                             ++m_requests;
                             m_kept = request;
                             endSometimes();
                         });
        QObject::connect(m_agent.get(), &PairingAgent::requestEnded, m_agent.get(),
                         [this] { endSometimes(); });
        QObject::connect(m_agent.get(), &PairingAgent::refused, m_agent.get(), [this] { endSometimes(); });
        QObject::connect(m_agent.get(), &PairingAgent::paired, m_agent.get(), [this] { endSometimes(); });
        QObject::connect(m_agent.get(), &PairingAgent::stateChanged, m_agent.get(),
                         [this] { endSometimes(); });
    }

    void makeBonds()
    {
        m_bonds = std::make_unique<plim::Bonds>();
        const auto end = [this] {
            if (pick(8) == 0) {
                m_bonds.reset();
            }
        };
        QObject::connect(m_bonds.get(), &plim::Bonds::added, m_bonds.get(), end);
        QObject::connect(m_bonds.get(), &plim::Bonds::removed, m_bonds.get(), end);
        QObject::connect(m_bonds.get(), &plim::Bonds::forgotten, m_bonds.get(), end);
        QObject::connect(m_bonds.get(), &plim::Bonds::allForgotten, m_bonds.get(), end);
    }

    void endSometimes()
    {
        if (pick(8) == 0) {
            m_agent.reset();
        }
    }

    void forget()
    {
        if (!m_bonds) {
            return;
        }
        if (pick(2) == 0) {
            m_bonds->forgetAll();
        } else if (!m_bonds->bonds().isEmpty()) {
            m_bonds->forget(m_bonds->bonds().constFirst().central);
        }
    }

    void decide()
    {
        // A copy: the answer may set off what replaces the kept one.
        const PairingRequest request = m_kept;
        switch (pick(4)) {
        case 0:
            request.accept();
            break;
        case 1:
            request.accept(QStringLiteral("123456"));
            break;
        case 2:
            request.reject();
            break;
        default:
            m_kept = PairingRequest();
        }
    }

    void tellPhone(const char* method, const QVariantList& arguments = {})
    {
        order(QStringLiteral("/org/plim/BluezSimulator/hci0/dev_00_AA_01_01_00_0%1").arg(2 + pick(phones)),
              QStringLiteral("org.plim.BluezSimulator1.Phone"), method, arguments);
    }

    void callAsAStranger()
    {
        // Agents count their paths; one of the latest may be there.
        for (int number = 1; number < 5000; ++number) {
            const QString path = QStringLiteral("/org/plim/agent%1").arg(number);
            if (QDBusConnection::systemBus().objectRegisteredAt(path)) {
                const BusMessage answer = m_stranger.call(
                    path, QStringLiteral("org.bluez.Agent1"), QStringLiteral("RequestAuthorization"),
                    QStringLiteral("o"), {QStringLiteral("/org/bluez/hci0/dev_00_AA_01_01_00_02")});
                const bool isGone =
                    answer.errorName == QLatin1String("org.freedesktop.DBus.Error.UnknownObject");
                if (!isGone && answer.errorName != QLatin1String("org.freedesktop.DBus.Error.AccessDenied")) {
                    ++m_intrusions;
                }
                return;
            }
        }
    }

    std::mt19937& m_random;
    RawBusClient& m_stranger;
    std::unique_ptr<PairingAgent> m_agent;
    std::unique_ptr<plim::Bonds> m_bonds;
    PairingRequest m_kept;
    int m_intrusions = 0;
    qint64 m_requests = 0;
};

/** The figures as soon as they are no larger than the first ones: answers may be on the way. */
Figures settled(const Figures& first)
{
    const int limitMs = first.objects == 0 ? quietMs * slowness() : patienceMs;
    QElapsedTimer time;
    time.start();
    Figures now = {};
    do {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        now = Figures::now();
    } while ((now.objects > first.objects || now.descriptors > first.descriptors) &&
             time.elapsed() < limitMs);
    return now;
}

int run(unsigned seed, int rounds)
{
    Simulator daemon;
    RawBusClient stranger;
    for (int phone = 0; phone < phones; ++phone) {
        order(QStringLiteral("/org/plim/BluezSimulator"), QStringLiteral("org.plim.BluezSimulator1"),
              "AddPhone", {QStringLiteral("hci0"), QStringLiteral("00:AA:01:01:00:0%1").arg(2 + phone)});
    }
    std::mt19937 random(seed);
    QElapsedTimer time;
    time.start();
    qint64 requests = 0;
    Figures first = {};
    for (int number = 1; number <= rounds; ++number) {
        int intrusions = 0;
        {
            Round round(random, stranger);
            for (int step = 0; step < stepsOfARound; ++step) {
                round.step();
            }
            intrusions = round.intrusions();
            requests += round.requests();
        }
        if (intrusions != 0) {
            std::printf("FAILED in round %d with seed %u: a stranger was let in %d times\n", number, seed,
                        intrusions);
            return 1;
        }
        const Figures now = settled(first);
        if (number == 1) {
            first = now;
        } else if (now.objects > first.objects || now.descriptors > first.descriptors) {
            std::printf("FAILED in round %d with seed %u: %s, not returned to %s\n", number, seed,
                        qPrintable(now.text()), qPrintable(first.text()));
            return 1;
        }
    }
    std::printf("%d rounds of %d steps, %lld pairing requests, seed %u, %lld s\n", rounds, stepsOfARound,
                requests, seed, time.elapsed() / 1000);
    return requests > 0 ? 0 : 1;
}

} // namespace

int main(int argc, char** argv)
{
    const QCoreApplication program(argc, argv);
    LoadOptions options(7);
    options.addCount(QStringLiteral("rounds"), QStringLiteral("How many."), 20);
    options.process(program);
    followObjects();
    return run(options.seed(), int(options.count(QStringLiteral("rounds"))));
}
