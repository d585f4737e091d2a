// The layer for products by the names that a consumer uses: its umbrella header, and one header alone.
#include <plim/peripheral.h>
#include <plim/peripheral/Access.h>

#include <GattApplication.h>
#include <plim.h>

#include <QCoreApplication>

#include <iostream>

int main(int argc, char** argv)
{
    QCoreApplication program(argc, argv);

    GattApplication app(nullptr, "/consumer", "com.example.Consumer");
    auto* service = plim::Service::create(&app, "1812");
    service->setHandle(0x100);
    const auto access = plim::Access().read(plim::Access::Encrypted).indicate();
    auto* report = plim::Characteristic::create(service, "2a4d", access, "report1");
    report->setReadHandler([](const plim::ReadRequest& request) { request.accept("x"); });
    report->setWriteHandler(
        [](const plim::WriteRequest& request) { request.reject(plim::AttError::application(0x81)); });
    report->trackSubscribers();
    plim::Descriptor::create(report, "2908", plim::Access().read());
    int confirmations = 0;
    plim::connect(report, &plim::Characteristic::confirmed, &program, [&] { ++confirmations; });

    const bool right = report->flags() == QStringList{"encrypt-read", "indicate"} &&
                       app.GetManagedObjects().size() == 3 && plim::problems(app).size() == 2;
    for (const BleFinding& finding : plim::problems(app)) {
        std::cout << finding.text() << std::endl;
    }
    std::cout << "peripheral consumer " << QString(right ? "works" : "does not work") << std::endl;
    return right ? 0 : 1;
}
