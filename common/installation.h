// The installation that the running program belongs to.

#pragma once

#include <QString>

enum class InstallationLayout {
    Installed, ///< the program is in the directory bin of the installation
    Flat,      ///< all is in the program's own directory
};

/// Fills TalvoraGlobals by the directory that the executable is in. To be called
/// once, with an application object. Warns of missing directories.
InstallationLayout chooseInstallationLayout();

/// The helper that the launcher starts.
QString helperPath();
