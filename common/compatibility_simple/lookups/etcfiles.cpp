#include "common/compatibility_simple/lookups/backends_p.h"

#include <QFile>

#include <arpa/inet.h>
#include <functional>

namespace {

// Calls the function for each line, up to the first for which it returns true.
void forLines(const char* fileName, const std::function<bool(const QByteArray&)>& function)
{
    QFile file(QString::fromLatin1(fileName));
    if (!file.open(QIODevice::ReadOnly)) {
        return;
    }
    for (QByteArray line = file.readLine(); !line.isEmpty(); line = file.readLine()) {
        if (function(line.endsWith('\n') ? line.chopped(1) : line)) {
            return;
        }
    }
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

// The words of a line of hosts(5), the address as normalized() gives it; empty for a line
// without an address and a name.
QByteArrayList hostWords(const QByteArray& line)
{
    QByteArrayList words = line.split('#').front().simplified().split(' ');
    words.front() = normalized(words.front());
    return words.front().isNull() || words.size() < 2 ? QByteArrayList() : words;
}

bool isSameName(const QByteArray& name1, const QByteArray& name2)
{
    return name1.compare(name2, Qt::CaseInsensitive) == 0;
}

} // namespace

Lookups::Host Lookups::EtcFiles::hostOfName(const QByteArray& name)
{
    Host host;
    const QByteArray address = normalized(name);
    if (!address.isNull()) {
        return {name, {address}};
    }
    forLines("/etc/hosts", [&](const QByteArray& line) {
        const QByteArrayList words = hostWords(line);
        for (qsizetype i = 1; i < words.size(); ++i) {
            if (isSameName(words.at(i), name)) {
                if (host.canonicalName.isNull()) {
                    host.canonicalName = words.at(1);
                }
                if (!host.addresses.contains(words.at(0))) {
                    host.addresses += words.at(0);
                }
            }
        }
        return false;
    });
    return host;
}

QByteArray Lookups::EtcFiles::nameOfAddress(const QByteArray& address)
{
    const QByteArray wanted = normalized(address);
    QByteArray name;
    forLines("/etc/hosts", [&](const QByteArray& line) {
        const QByteArrayList words = hostWords(line);
        if (!words.isEmpty() && words.at(0) == wanted) {
            name = words.at(1);
        }
        return !name.isNull();
    });
    return name;
}

QByteArray Lookups::EtcFiles::userLine(int field, const QByteArray& text)
{
    QByteArray found;
    forLines("/etc/passwd", [&](const QByteArray& line) {
        if (line.split(':').value(field) == text) {
            found = line;
        }
        return !found.isNull();
    });
    return found;
}
