#pragma once

#include <QString>

inline const QString TAGNAME = QStringLiteral("session");
inline const QString XML_PORT = QStringLiteral("port");
inline const QString XML_HOST = QStringLiteral("host");
inline const QString XML_SESSION_COOKIE = QStringLiteral("cookie");
inline const QString XML_SESSION = QStringLiteral("session");
