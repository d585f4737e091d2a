#pragma once

#include "BleRegistration.h"

#include <QEventLoop>
#include <QString>

#include <memory>

class GapAdvertisement;
class GattApplication;

namespace doctor {

class Report;
struct Adapters;
struct CommandLine;

/** Registers a small application and an advertisement with the library for a while, as any program does. */
class Trial
{
public:
    Trial(const CommandLine& options, const Adapters& adapters, Report& report);
    ~Trial();
    Q_DISABLE_COPY(Trial)

    /** Registers the requested objects, reports what a phone should see, and waits until the time is over. */
    void run();

private:
    void buildApplication();
    void buildAdvertisement();
    void onEvent(const BleRegistrationEvent& event);
    void endEarly();
    void onAnswer(const BleRegistrationEvent& event);
    void tellWhatIsServed();
    void tellWhatIsAdvertised();
    void awaitAnswers();
    void stay();

    const CommandLine& m_options;
    const Adapters& m_adapters;
    Report& m_report;
    std::unique_ptr<GattApplication> m_application;
    std::unique_ptr<GapAdvertisement> m_advertisement;
    QStringList m_unanswered; // "application", "advertisement"
    bool m_isServed = false;
    bool m_isAdvertised = false;
    bool m_isOver = false; // the registered objects are no longer registered
    int m_reads = 0;
    QEventLoop m_loop;
};

} // namespace doctor
