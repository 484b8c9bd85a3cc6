#include "common/compatibility_simple/lookups/lookups.h"

#include "common/compatibility_simple/lookups/backends_p.h"

namespace {
namespace Source = Lookups::ZORV_LOOKUPS_SOURCE;
}

Lookups::Host Lookups::hostOfName(const QByteArray& name)
{
    return Source::hostOfName(name);
}

QByteArray Lookups::nameOfAddress(const QByteArray& address)
{
    return Source::nameOfAddress(address);
}

passwd* Lookups::userOfName(const QByteArray& name)
{
    return Source::userOfName(name);
}

passwd* sc_getpwuid(uid_t uid)
{
    return Source::userOfId(uid);
}

hostent* sc_gethostbyname(const char* name)
{
    return name ? Source::hostentOfName(name) : nullptr;
}
