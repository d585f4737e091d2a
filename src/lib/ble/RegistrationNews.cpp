#include "RegistrationNews.h"

RegistrationNews* RegistrationNews::instance()
{
    static auto* news = new RegistrationNews;
    return news;
}

RegistrationNews::RegistrationNews()
{
    // So that receivers on other threads get it, too.
    qRegisterMetaType<BleRegistrationEvent>("BleRegistrationEvent");
}
