#include "common/compatibility_simple/lookups/backends_p.h"

#include <QFile>

#include <algorithm>
#include <arpa/inet.h>

namespace {

// None when the file cannot be read.
QByteArrayList linesOf(const QString& fileName)
{
    QFile file(fileName);
    return file.open(QIODevice::ReadOnly) ? file.readAll().split('\n') : QByteArrayList();
}

// The address in the form of inet_ntop(3); null for any other text.
QByteArray normalized(const QByteArray& address)
{
    char bytes[sizeof(in6_addr)];
    char text[INET6_ADDRSTRLEN];
    for (int family : {AF_INET, AF_INET6}) {
        if (inet_pton(family, address.constData(), bytes) == 1) {
            return inet_ntop(family, bytes, text, sizeof text);
        }
    }
    return QByteArray();
}

// The words of each line of hosts(5), the address as normalized() gives it. Leaves out a line
// without an address and a name.
QList<QByteArrayList> wordsOfHosts()
{
    QList<QByteArrayList> result;
    const QByteArrayList lines = linesOf(QStringLiteral("/etc/hosts"));
    for (const QByteArray& line : lines) {
        QByteArrayList words = line.split('#').front().simplified().split(' ');
        words.front() = normalized(words.front());
        if (!words.front().isNull() && words.size() > 1) {
            result += words;
        }
    }
    return result;
}

} // namespace

Lookups::Host Lookups::EtcFiles::hostOfName(const QByteArray& name)
{
    Host host;
    const QByteArray address = normalized(name);
    if (!address.isNull()) {
        return {name, {address}};
    }
    const QList<QByteArrayList> hosts = wordsOfHosts();
    for (const QByteArrayList& words : hosts) {
        const bool isNamed = std::any_of(words.begin() + 1, words.end(), [&](const auto& word) {
            return word.compare(name, Qt::CaseInsensitive) == 0;
        });
        if (isNamed && host.canonicalName.isNull()) {
            host.canonicalName = words.at(1);
        }
        if (isNamed && !host.addresses.contains(words.at(0))) {
            host.addresses += words.at(0);
        }
    }
    return host;
}

QByteArray Lookups::EtcFiles::nameOfAddress(const QByteArray& address)
{
    const QByteArray wanted = normalized(address);
    const QList<QByteArrayList> hosts = wordsOfHosts();
    for (const QByteArrayList& words : hosts) {
        if (words.at(0) == wanted) {
            return words.at(1);
        }
    }
    return QByteArray();
}

QByteArray Lookups::EtcFiles::userLine(int field, const QByteArray& text)
{
    const QByteArrayList lines = linesOf(QStringLiteral("/etc/passwd"));
    for (const QByteArray& line : lines) {
        if (line.split(':').value(field) == text) {
            return line;
        }
    }
    return QByteArray();
}
