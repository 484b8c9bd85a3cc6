// The words of a session file, and what the session record's files share.

#pragma once

#include <QString>

inline const QString TAGNAME = QStringLiteral("session");
inline const QString XML_PORT = QStringLiteral("port");
inline const QString XML_HOST = QStringLiteral("host");
inline const QString XML_SESSION_COOKIE = QStringLiteral("cookie");
inline const QString XML_SESSION = QStringLiteral("session");

/// A name beside `path` that nobody else has, for what is then renamed to it:
/// a reader never finds half of it.
QString temporaryName(const QString& path);
