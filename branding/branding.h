#pragma once

#include <QString>

/// The names and addresses of the product and its maker. Initialized before main;
/// QObject::tr() translates them if a translator is installed by then.
namespace Branding {

extern const QString SuiteName;
/// The name of the suite's icon in an icon theme.
extern const QString SuiteIconName;
extern const QString CopyrightTalvoraSoftware;
/// The display name of the quick-start feature in running text.
extern const QString SprintstartName;
/// The same in titles.
extern const QString SprintstartNameTitleCase;
/// The same at the start of a sentence.
extern const QString SprintstartNameSentenceStart;
extern const QString SupportFormURL;
extern const QString SalesEmailAddress;
extern const QString SupportTeamName;
extern const QString OrganizationName;
extern const QString OrganizationURL;
extern const QString ProfilerName;

} // namespace Branding
