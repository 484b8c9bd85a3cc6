// The names of this host. In a file of its own: a program that does not ask for
// them links nothing that looks them up.

#include "backend/backendoptions.h"

#include "common/compatibility_simple/localhost.h"

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
