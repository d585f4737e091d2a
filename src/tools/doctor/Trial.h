#pragma once

#include "BleRegistration.h"

#include <QEventLoop>
#include <QString>

#include <memory>

class GapAdvertisement;
class GattApplication;
class Report;
struct Adapters;
struct CommandLine;

/** Hands a small application and an advertisement to the library for a while, as any program would. */
class Trial
{
public:
    Trial(const CommandLine& options, const Adapters& adapters, Report& report);
    ~Trial();
    Q_DISABLE_COPY(Trial)

    /** Registers what was asked for, says what a phone should see of it, and waits until the time is over. */
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
    bool m_isOver = false; // what was registered is there no longer
    int m_reads = 0;
    QEventLoop m_loop;
};
