#pragma once

#include <QString>

/** Every scene; each finds nothing running and leaves nothing running. */
namespace Scenes {

/** The daemon's version, "5.66" or "5.82". */
QString version();

void discover();
void sizes();
void tree();
void read();
void pages();
void write();
void smallTransfers();
void notify();
void burst();
void wideBurst();
void change();
void crash();
void power();
void keeper();
void keeperLegacy();
void asleep();
void beacon();
void unsafe();
void secondCentral();
void room();
void timeout();
void fields();
void unplug();
void refuse();
void two();
void readme();
void device();
void doctor();
void same();
void preflight();
void access();
void centrals();
void adapters();
void errors();
void requests();
void pending();
void subscribers();
void sockets();
void handles();
void standard();
void battery();
void lock();
void justWorks();
void comparison();
void passkey();
void typing();
void bonds();
void forgotten();
void repairConfirmed();
void repairAlways();
void repairNumbers();
void diary();
void console();
void stream();
void streamOverBus();
void streamMegabyte();
void streamHeld();
void costs();
void demo();

} // namespace Scenes
