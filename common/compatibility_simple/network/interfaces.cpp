#include "common/compatibility_simple/network/interfaces_p.h"

#include "common/compatibility_simple/network/addresses.h"

#include <QRegularExpression>

QList<QNetworkInterface> NetworkInternals::filteredInterfaces(const QString& filter)
{
    static const QRegularExpression separator(QStringLiteral(" *, *"));
    const QStringList names = filter.split(separator, Qt::SkipEmptyParts);
    QList<QNetworkInterface> interfaces = QNetworkInterface::allInterfaces();
    if (!names.isEmpty()) {
        interfaces.removeIf(
            [&](const QNetworkInterface& interface) { return !names.contains(interface.name()); });
    }
    return interfaces;
}

QList<QList<QNetworkAddressEntry>> NetworkInternals::interfaceEntries(const QString& filter)
{
    QList<QList<QNetworkAddressEntry>> passes(interfacePassCount);
    const QList<QNetworkInterface> interfaces = filteredInterfaces(filter);
    for (const QNetworkInterface& interface : interfaces) {
        const int ethernetPass = interface.name().startsWith(QLatin1String("eth")) ? 0 : 2;
        const QList<QNetworkAddressEntry> entries = interface.addressEntries();
        for (const QNetworkAddressEntry& entry : entries) {
            const auto family = entry.ip().protocol();
            const bool v6 = family == QAbstractSocket::IPv6Protocol;
            if ((v6 || family == QAbstractSocket::IPv4Protocol) && !isLoopback(entry.ip())) {
                passes[ethernetPass + (v6 ? 1 : 0)] += entry;
            }
        }
    }
    return passes;
}
