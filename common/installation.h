#pragma once

#include <QByteArray>

enum class InstallationLayout {
    Installed, ///< the program is in the directory bin of the installation
    Flat,      ///< everything is in the program's own directory
    Unknown,   ///< the program's file has been replaced or removed, or has no name
};

/// Fills TalvoraGlobals from the directory of the running program. Call it once, after
/// the application object was created. Warns of missing directories. Changes nothing if
/// the layout is unknown.
InstallationLayout chooseInstallationLayout();

/// The path of the helper, in the bytes of the file system; empty if the layout is
/// unknown.
QByteArray helperPath();
