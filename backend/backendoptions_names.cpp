// The names of this host. They are a target of their own, as their look-ups need the
// network library.

#include "backend/backendoptions.h"

#include "common/compatibility_simple/network/localhost.h"

QStringList BackendOptions::myNamesAndAddresses() const
{
    if (!mNamesAndAddresses) {
        mNamesAndAddresses = localHostNamesAndAddresses();
    }
    QStringList names = *mNamesAndAddresses;
    for (const QString& name : mPreferredNames) {
        names.removeAll(name);
        names.prepend(name);
    }
    return names;
}
