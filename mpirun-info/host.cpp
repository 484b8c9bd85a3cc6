// The system, the interfaces of this host, and look-ups of names.

#include "mpirun-info/probe.h"
#include "mpirun-info/sections.h"

#include "backend/backenduserdata.h"
#include "common/compatibility_simple/network/addresses.h"
#include "common/compatibility_simple/network/localhost.h"
#include "common/compatibility_simple/network/resolver.h"
#include "common/compatibility_simple/network/routability.h"
#include "common/compatibility_simple/system/systemidentity.h"
#include "common/env/zorvenv.h"

#include <QElapsedTimer>
#include <QNetworkInterface>

#include <gnu/libc-version.h>
#include <sys/utsname.h>

namespace {

// On a host with hundreds of addresses, a few are enough to test the name server.
constexpr qsizetype mostLookUps = 8;

QJsonArray textsOf(const QList<QHostAddress>& addresses)
{
    QStringList texts;
    for (const QHostAddress& address : addresses) {
        texts += address.toString();
    }
    texts.removeDuplicates();
    return QJsonArray::fromStringList(texts);
}

// Returns the addresses to look up: those of the launcher's interfaces, IPv4 only.
QStringList describeInterfaces(Report* report)
{
    const QStringList used = localHostInterfaces();
    QJsonArray interfaces;
    QStringList looked;
    const QList<QNetworkInterface> all = QNetworkInterface::allInterfaces();
    for (const QNetworkInterface& interface : all) {
        QList<QHostAddress> addresses;
        const bool isUsed = used.contains(interface.name());
        const QList<QNetworkAddressEntry> entries = interface.addressEntries();
        for (const QNetworkAddressEntry& entry : entries) {
            addresses += entry.ip();
            if (isUsed && entry.ip().protocol() == QAbstractSocket::IPv4Protocol &&
                !entry.ip().isLoopback()) {
                looked += entry.ip().toString();
            }
        }
        interfaces += objectOf(
            {{"name", interface.name()}, {"addresses", textsOf(addresses)}, {"used", isUsed}});
    }
    report->add("interfaces", interfaces);
    report->add("interfaceFilter", orNull(envString("NETWORK_INTERFACES")));
    if (used.isEmpty()) {
        report->find(Finding::NoInterface, "NETWORK_INTERFACES is '%1'",
                     envString("NETWORK_INTERFACES"));
    }
    return looked;
}

// The hosts of the front end in the session.
QStringList frontEndHosts(const Request& request)
{
    Probe probe([&]() -> QJsonValue {
        BackendUserData session;
        static_cast<void>(findSession(request, &session));
        return QJsonArray::fromStringList(session.getHostNamesAndAddresses());
    });
    return probe.answer().toVariant().toStringList();
}

QJsonValue lookUp(const QString& name)
{
    QElapsedTimer timer;
    timer.start();
    const QHostInfo info = lookUpHost(name);
    return objectOf({{"lookedUp", name},
                     {"seconds", double(timer.elapsed()) / 1000},
                     {"name", info.hostName()},
                     {"addresses", textsOf(info.addresses())}});
}

void findSlowLookUp(Report* report, const QString& name, const QJsonValue& lookUp)
{
    const double seconds = lookUp[QLatin1String("seconds")].toDouble();
    if (lookUp[QLatin1String("addresses")].toArray().isEmpty()) {
        report->find(Finding::HostUnknown, name);
    } else if (seconds > slowSeconds) {
        report->find(Finding::SlowLookUp, "%1: %2 s", name, seconds);
    }
}

void describeLookUps(Report* report, QStringList names)
{
    names.removeDuplicates();
    names.removeAll(QString());
    names = names.mid(0, mostLookUps);
    QJsonArray lookUps = answersTo(lookUp, names);
    for (qsizetype i = 0; i < names.size(); ++i) {
        if (lookUps.at(i).isNull()) {
            report->find(Finding::NameServerSilent, names.at(i));
            lookUps[i] = objectOf(
                {{"lookedUp", names.at(i)}, {"seconds", {}}, {"name", {}}, {"addresses", {}}});
        } else {
            findSlowLookUp(report, names.at(i), lookUps.at(i));
        }
    }
    report->add("lookUps", lookUps);
}

QJsonValue lookUpOwnNames()
{
    return QJsonArray{QJsonArray::fromStringList(localHostNamesAndAddresses()),
                      textsOf(localHostAddresses()), textsOf(sc_localhostAddresses())};
}

QJsonArray lookUpRoutability(const QString& hosts)
{
    const QList<QHostAddress> asTried = sortHostNamesAndAddressesByPotentialRoutability(
        hosts.split(QLatin1Char(','), Qt::SkipEmptyParts));
    return QJsonArray{textsOf(asTried), textsOf(sortAddressesByPotentialRoutability(asTried))};
}

} // namespace

void describeHost(Report* report, const Request& request)
{
    report->add("name", sc_hostname());
    QStringList names = {sc_hostname()};
    names += request.host.split(QLatin1Char(','), Qt::SkipEmptyParts);
    names += frontEndHosts(request);
    names += describeInterfaces(report);
    Probe own(lookUpOwnNames);
    Probe routability([&] { return lookUpRoutability(request.host); });
    describeLookUps(report, names);
    report->add("namesAndAddresses", own.answer()[0]);
    report->add("addresses", own.answer()[1]);
    report->add("loopback", sc_localhost());
    report->add("loopbackAddresses", own.answer()[2]);
    report->add("asked", orNull(request.host));
    report->add("addressesAsTried", routability.answer()[0]);
    report->add("addressesByRoutability", routability.answer()[1]);
    if (own.answer()[1].isArray() && own.answer()[1].toArray().isEmpty()) {
        report->find(Finding::NoAddress, sc_hostname());
    }
}

void describeSystem(Report* report, const Request&)
{
    utsname kernel = {};
    uname(&kernel);
    // Runs lsb_release(1), which may be slow.
    Probe description([] { return QJsonValue(sc_uname()); });
    report->add("description", orNull(description.answer().toString()));
    report->add("kernel", QString::fromLocal8Bit(kernel.release));
    report->add("cLibrary", QString::fromLatin1(gnu_get_libc_version()));
    report->add("architecture", sc_arch());
    report->add("subArchitecture", orNull(sc_subArch()));
    report->add("cray", sc_isCray());
    report->add("blueGene", sc_isBluegene());
    report->add("blueGeneQ", sc_isBluegeneQ());
    report->add("blueGeneQNode", sc_isBluegeneQNode());
}
