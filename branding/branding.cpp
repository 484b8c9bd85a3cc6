#include "branding/branding.h"

#include "branding/branding_c.h"

#include <QObject>

namespace Branding {

const QString SuiteName = QObject::tr(BrandingSuiteName);
const QString SuiteIconName = QObject::tr(BrandingSuiteIconName);
const QString CopyrightTalvoraSoftware = QObject::tr(BrandingCopyrightTalvoraSoftware);
const QString SprintstartName = QObject::tr(BrandingSprintstartName);
const QString SprintstartNameTitleCase = QObject::tr(BrandingSprintstartNameTitleCase);
const QString SprintstartNameSentenceStart = QObject::tr(BrandingSprintstartNameSentenceStart);
const QString SupportFormURL = QObject::tr(BrandingSupportFormURL);
const QString SalesEmailAddress = QObject::tr(BrandingSalesEmailAddress);
const QString SupportTeamName = QObject::tr(BrandingVelmorSupport);
const QString OrganizationName = QObject::tr(BrandingOrganizationName);
const QString OrganizationURL = QObject::tr(BrandingOrganizationURL);
const QString ProfilerName = QObject::tr(BrandingProfilerName);

} // namespace Branding
