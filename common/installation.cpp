// The installation that the running program belongs to.

#include "common/installation.h"

#include "branding/filenames.h"
#include "common/talvoraglobals.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>

InstallationLayout chooseInstallationLayout()
{
    const QFileInfo applicationDir(QCoreApplication::applicationDirPath());
    if (applicationDir.fileName() != QLatin1String("bin")) {
        TalvoraGlobals::instance()->setLocationsAsFlatPath(applicationDir.filePath());
        return InstallationLayout::Flat;
    }
    TalvoraGlobals::instance()->setLocationsFromInstallPath(QDir(applicationDir.path()).path());
    return InstallationLayout::Installed;
}

QString helperPath()
{
    return QDir(TalvoraGlobals::instance()->binPath()).filePath(FileName::zorvDebugger);
}
