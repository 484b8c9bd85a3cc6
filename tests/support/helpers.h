// What the test programs share.

#pragma once

#include "common/env/zorvenv.h"

#include <QDir>
#include <QFile>
#include <QProcessEnvironment>
#include <QRegularExpression>
#include <QStringList>
#include <QTemporaryDir>

#include <initializer_list>
#include <memory>

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

inline QByteArray content(const QString& fileName)
{
    QFile file(fileName);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : "cannot be read";
}

/// Makes an empty directory the working directory, in place of the one before.
inline void enterEmptyDirectory()
{
    static std::unique_ptr<QTemporaryDir> directory;
    directory = std::make_unique<QTemporaryDir>();
    QDir::setCurrent(directory->path());
}

inline QStringList namesIn(const QString& directory)
{
    return QDir(directory).entryList(QDir::Files | QDir::System | QDir::Hidden);
}

/// Gives a variable a value, or none for null.
inline void setSetting(const char* name, const QByteArray& value)
{
    value.isNull() ? qunsetenv(name) : qputenv(name, value);
    discardEnvCache();
}

/// Unsets all of the suite's settings.
inline void clearSettings()
{
    static const QRegularExpression ours(QStringLiteral("^(ZORV|PELK|TALVORA)_"));
    for (const QString& name : QProcessEnvironment::systemEnvironment().keys().filter(ours)) {
        qunsetenv(name.toLatin1().constData());
    }
    discardEnvCache();
}
