// Which version the program is.

#pragma once

#include <QString>

/// The version number: the setting VERSION, else that of the build.
QString sc_version();
/// The release version: the setting RELEASE_VERSION, else VERSION, else that of
/// the build.
QString sc_releaseVersion();

/// What two programs of the suite compare to decide whether they may talk to
/// each other: the version without date stamps and without a third and last
/// number (unless that is 0), a preview mark, and a revision, as in "4.2preview3$7".
QString sc_versionForCompatibility(int revision);
QString sc_versionForCompatibility_private(const QString& version, int revision);
