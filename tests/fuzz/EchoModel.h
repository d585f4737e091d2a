#pragma once

#include "WireValue.h"

/** What becomes of a container that is read into one of the library's types and written again. */
namespace EchoModel {

/** @param argument  of type a{yv}, a{qv}, a{oa{sv}}, a{sa{sv}} or a{oa{sa{sv}}} */
WireValue echo(const WireValue& argument);

} // namespace EchoModel
