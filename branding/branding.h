#pragma once

#include <QString>

/// The names and addresses of the product and its maker. Initialized before main;
/// QObject::tr() translates them if a translator is installed by then.
namespace Branding {

/// The display name of the suite.
extern const QString SuiteName;
/// The name of the suite's icon in an icon theme.
extern const QString SuiteIconName;
/// The copyright line of the suite.
extern const QString CopyrightTalvoraSoftware;
/// The display name of the quick-start feature in running text.
extern const QString SprintstartName;
/// The same in titles.
extern const QString SprintstartNameTitleCase;
/// The same at the start of a sentence.
extern const QString SprintstartNameSentenceStart;
/// The address of the maker's support form.
extern const QString SupportFormURL;
/// The maker's sales mail address.
extern const QString SalesEmailAddress;
/// The name of the maker's support team.
extern const QString SupportTeamName;
/// The maker's name.
extern const QString OrganizationName;
/// The maker's web address.
extern const QString OrganizationURL;
/// The display name of the suite's profiler.
extern const QString ProfilerName;

} // namespace Branding
