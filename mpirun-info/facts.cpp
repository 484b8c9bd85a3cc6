// What the launcher sees of itself, its installation, its host and its system.

#include "mpirun-info/facts.h"

#include "mpirun-info/report.h"

#include "common/compatibility_simple/network/addresses.h"
#include "common/compatibility_simple/network/localhost.h"
#include "common/compatibility_simple/network/routability.h"
#include "common/compatibility_simple/system/systemidentity.h"
#include "common/compatibility_simple/system/versionstrings.h"
#include "common/env/zorvenv.h"
#include "common/talvoraglobals.h"
#include "version/hgid.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonObject>
#include <QNetworkInterface>

namespace {

QJsonArray textsOf(const QList<QHostAddress>& addresses)
{
    QStringList texts;
    for (const QHostAddress& address : addresses) {
        texts += address.toString();
    }
    texts.removeDuplicates();
    return QJsonArray::fromStringList(texts);
}

QJsonValue orNull(const QString& text)
{
    return text.isEmpty() ? QJsonValue() : QJsonValue(text);
}

void describeDirectory(Report* report, const char* key, const QString& path)
{
    const bool present = QFileInfo(path).isDir();
    report->addPath(key, path, present ? "present" : "missing");
    if (!present) {
        report->addWarning("directory-missing",
                           QStringLiteral("%1: the installation's directory %2 is missing")
                               .arg(path, QLatin1String(key)));
    }
}

void describeHelper(Report* report)
{
    const QFileInfo helper(QFile::decodeName(helperPath()));
    const char* state = "present";
    if (!helper.exists()) {
        state = helper.isSymLink() ? "dead link" : "missing";
    } else if (!helper.isFile()) {
        state = "not a file";
    } else if (!helper.isExecutable()) {
        state = "not executable";
    }
    report->addPath("helper", helper.filePath(), state);
    if (qstrcmp(state, "present") != 0) {
        report->addError(
            "helper-unusable",
            QStringLiteral("%1: the helper is %2").arg(helper.filePath(), QLatin1String(state)));
    }
}

void describeInterfaces(Report* report)
{
    const QStringList used = localHostInterfaces();
    QJsonArray interfaces;
    QStringList texts;
    const QList<QNetworkInterface> all = QNetworkInterface::allInterfaces();
    for (const QNetworkInterface& interface : all) {
        QList<QHostAddress> addresses;
        const QList<QNetworkAddressEntry> entries = interface.addressEntries();
        for (const QNetworkAddressEntry& entry : entries) {
            addresses += entry.ip();
        }
        const bool isUsed = used.contains(interface.name());
        const QString text =
            QStringLiteral("%1: %2").arg(interface.name(), textOf(textsOf(addresses)));
        interfaces += QJsonObject{{QStringLiteral("name"), interface.name()},
                                  {QStringLiteral("addresses"), textsOf(addresses)},
                                  {QStringLiteral("used"), isUsed}};
        texts += isUsed ? text : text + QStringLiteral(" (filtered out)");
    }
    report->add("interfaces", interfaces, texts.join(QStringLiteral("; ")));
    report->add("interfaceFilter", orNull(envString("NETWORK_INTERFACES")));
    if (used.isEmpty()) {
        report->addWarning("no-interface",
                           QStringLiteral("NETWORK_INTERFACES lets no interface of this host "
                                          "through"));
    }
}

} // namespace

void describeVersion(Report* report)
{
    report->beginSection("version");
    report->add("version", sc_version());
    report->add("releaseVersion", sc_releaseVersion());
    report->add("changeset", QString::fromLatin1(HGID));
    report->add("releaseTag", QString::fromLatin1(HGBRANCH));
    report->add("compatibilityKey", sc_versionForCompatibility(0));
}

void describeInstallation(Report* report, InstallationLayout layout)
{
    const TalvoraGlobals* const globals = TalvoraGlobals::instance();
    report->beginSection("installation");
    report->add("layout", layout == InstallationLayout::Flat ? QStringLiteral("flat")
                                                             : QStringLiteral("installed"));
    describeDirectory(report, "root", globals->installPath());
    describeDirectory(report, "bin", globals->binPath());
    describeDirectory(report, "lib", globals->libPath());
    describeDirectory(report, "libexec", globals->libexecPath());
    describeHelper(report);
}

void describeHost(Report* report)
{
    report->beginSection("host");
    report->add("name", sc_hostname());
    report->add("namesAndAddresses", QJsonArray::fromStringList(localHostNamesAndAddresses()));
    const QList<QHostAddress> addresses = localHostAddresses();
    report->add("addresses", textsOf(addresses));
    describeInterfaces(report);
    report->add("loopback", sc_localhost());
    report->add("loopbackAddresses", textsOf(sc_localhostAddresses()));
    if (addresses.isEmpty()) {
        report->addWarning("no-address",
                           QStringLiteral("no other host can reach this one: it has no address "
                                          "but loopback"));
    }
}

void describeRoutability(Report* report, const QString& hosts)
{
    QList<QHostAddress> asTried;
    if (!hosts.isNull()) {
        asTried = sortHostNamesAndAddressesByPotentialRoutability(hosts.split(QLatin1Char(',')));
    }
    report->beginSection("routability");
    report->add("host", orNull(hosts), hosts.isNull() ? QStringLiteral("not asked for") : hosts);
    report->add("asTried", textsOf(asTried));
    report->add("byRoutability", textsOf(sortAddressesByPotentialRoutability(asTried)));
    if (!hosts.isNull() && asTried.isEmpty()) {
        report->addWarning("host-unknown", QStringLiteral("%1: no address found").arg(hosts));
    }
}

void describeSystem(Report* report)
{
    report->beginSection("system");
    report->add("description", sc_uname());
    report->add("architecture", sc_arch());
    report->add("subArchitecture", orNull(sc_subArch()));
    report->add("cray", sc_isCray());
    report->add("blueGene", sc_isBluegene());
    report->add("blueGeneQ", sc_isBluegeneQ());
    report->add("blueGeneQNode", sc_isBluegeneQNode());
}
