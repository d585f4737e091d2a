#include "Layout.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace {

std::string child(const std::string& parent, unsigned number)
{
    std::string name = Layout::uuid(number);
    std::replace(name.begin(), name.end(), '-', '_');
    return parent + '/' + name;
}

} // namespace

unsigned Layout::valueSize(unsigned characteristic)
{
    switch (characteristic) {
    case Value512:
    case Callback512:
        return 512;
    case Paged:
        return 1300;
    case Control:
        return 0;
    default:
        return 20;
    }
}

std::string Layout::uuid(unsigned number)
{
    std::array<char, 64> text;
    std::snprintf(text.data(), text.size(), "%08x-0000-1000-8000-00805f9b34fb", number);
    return text.data();
}

std::string Layout::servicePath(const std::string& root)
{
    return child(root, 0);
}

std::string Layout::characteristicPath(const std::string& root, unsigned number)
{
    return child(servicePath(root), number);
}
