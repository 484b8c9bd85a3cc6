#pragma once

#include <QString>

/// The version number: the setting VERSION, or else that of the build. "<unknown>" for a
/// build without one.
QString sc_version();
/// The version of the release: the setting RELEASE_VERSION, or else VERSION, or else that
/// of the build. "<unknown>" for a build without one.
QString sc_releaseVersion();

/// The text by which two programs of the suite decide whether they can work together. It
/// consists of the version without date stamps and without a third number above 0, the
/// preview number, and the revision, as in "4.2preview3$7".
QString sc_versionForCompatibility(int revision);
/// sc_versionForCompatibility() of a given version.
QString sc_versionForCompatibility_private(const QString& version, int revision);
