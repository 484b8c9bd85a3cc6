// In a target of its own, because the look-ups need Qt Network.

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
