#pragma once

#include <QString>
#include <optional>

namespace simulator {

/** How well the link to a phone is protected; each level includes those before it. */
enum class Protection
{
    Open,
    Encrypted,
    Authenticated,
    SecureConnections
};

/** The level with this name: "open", "encrypted", "authenticated" or "secure-connections". */
std::optional<Protection> protectionFromText(const QString& text);

} // namespace simulator
