#include "SceneTree.h"

#include "Peripheral.h"

namespace SceneTree {

QStringList application()
{
    return {
        "application /com/example/scene com.example.Scene",
        "service values " + values + " primary",
        "characteristic fixed values " + fixed + " read",
        "value fixed 68656c6c6f",
        "characteristic asked values " + asked + " read",
        "callback asked 616e73776572",
        "characteristic empty values " + empty + " read",
        "characteristic longest values " + longest + " read",
        "fill longest 512",
        "characteristic writable values " + writable + " read,write",
        "characteristic described values " + described + " read",
        "value described 01",
        "descriptor description described " + description + " read",
        "callback description 7465787420666f72206120686561646572",
        "descriptor note described " + note + " read,write",
        "service paged " + paged + " primary",
        "characteristic page paged " + page + " read,write",
        "characteristic record paged " + record + " read,notify page",
        "fill record 1300",
        "characteristic counter paged " + counter + " read,notify",
        "service secondary " + secondary + " secondary",
        "characteristic hidden secondary " + hidden + " read",
        "value hidden 2a",
    };
}

QStringList advertisement()
{
    return {
        "advertisement adv /com/example/scene/advertisement set",
        "set adv name " + name,
        "set adv discoverable 1",
        "set adv uuids 180d",
    };
}

void build(Peripheral& peripheral)
{
    peripheral.tell(application());
    peripheral.tell(advertisement());
    peripheral.tell({QStringLiteral("add application"), QStringLiteral("add adv")});
    peripheral.awaitRegistration();
}

} // namespace SceneTree
