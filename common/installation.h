#pragma once

#include <QByteArray>

/// The layout of the installation that the running program belongs to.
enum class InstallationLayout {
    Installed, ///< the program is in the directory bin of the installation
    Flat,      ///< all files are in the program's own directory
    Unknown,   ///< the program's file has been replaced or removed, or its path is unknown
};

/// Fills TalvoraGlobals from the directory of the running program. Call it once, after the
/// application object has been created. Warns about missing directories. If the layout is
/// unknown, changes nothing.
InstallationLayout chooseInstallationLayout();

/// The path of the helper, in the bytes of the file system; empty if the layout is
/// unknown.
QByteArray helperPath();
