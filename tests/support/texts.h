#pragma once

#include <QFile>
#include <QStringList>

#include <initializer_list>

inline QString text(const char* utf8)
{
    return QString::fromUtf8(utf8);
}

inline QStringList list(std::initializer_list<const char*> entries)
{
    QStringList result;
    for (const char* entry : entries) {
        result += text(entry);
    }
    return result;
}

/// Makes a file or replaces its content; false when that fails.
[[nodiscard]] inline bool writeFile(const QString& fileName, const QByteArray& content)
{
    QFile file(fileName);
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
}
