// Records the look-ups that a test program makes.

#include "tests/support/lookups.h"

#include <netdb.h>

int forwardLookups = 0;
int reverseLookups = 0;
QStringList lookedUpNames;

void resetLookups()
{
    forwardLookups = 0;
    reverseLookups = 0;
    lookedUpNames.clear();
}

extern "C" {

int __real_getaddrinfo(const char* node, const char* service, const addrinfo* hints,
                       addrinfo** results);
int __real_getnameinfo(const sockaddr* address, socklen_t length, char* host, socklen_t hostLength,
                       char* service, socklen_t serviceLength, int flags);

int __wrap_getaddrinfo(const char* node, const char* service, const addrinfo* hints,
                       addrinfo** results)
{
    ++forwardLookups;
    lookedUpNames += QString::fromLocal8Bit(node);
    return __real_getaddrinfo(node, service, hints, results);
}

int __wrap_getnameinfo(const sockaddr* address, socklen_t length, char* host, socklen_t hostLength,
                       char* service, socklen_t serviceLength, int flags)
{
    ++reverseLookups;
    return __real_getnameinfo(address, length, host, hostLength, service, serviceLength, flags);
}

} // extern "C"
