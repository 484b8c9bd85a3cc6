// In a target of its own, because only this needs Qt Xml.

#include "backend/backenduserdata.h"
#include "backend/userdata_p.h"

#include "common/compatibility_simple/calls/calls.h"
#include "common/compatibility_simple/files/replace.h"

#include <QDomDocument>
#include <QFile>

QString BackendUserData::toXml() const
{
    QDomDocument document;
    QDomElement element = document.createElement(TAGNAME);
    if (!hostNamesAndAddresses.isEmpty()) {
        element.setAttribute(XML_HOST, hostNamesAndAddresses.join(QLatin1Char(',')));
    }
    if (port != 0) {
        element.setAttribute(XML_PORT, port);
    }
    if (!mSessionCookie.isEmpty()) {
        element.setAttribute(XML_SESSION_COOKIE, mSessionCookie);
    }
    element.setAttribute(XML_SESSION, mSession);
    document.appendChild(element);
    return document.toString(1);
}

bool BackendUserData::save(const QString& fileName)
{
    mSessionFileName = fileName.isNull() ? getSessionFile(mSession, true) : fileName;
    if (replaceFile(mSessionFileName, toXml().toUtf8())) {
        return true;
    }
    // Readers would take the old file for this session.
    sc_unlink(QFile::encodeName(mSessionFileName).constData());
    return false;
}
