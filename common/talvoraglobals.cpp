#include "common/talvoraglobals.h"

#include "common/env/zorvenv.h"

#include "branding/filenames.h"

#include <QCoreApplication>
#include <QDir>
#include <QGlobalStatic>

namespace {

class TalvoraGlobalsInstance : public TalvoraGlobals
{
public:
    TalvoraGlobalsInstance() = default;
    ~TalvoraGlobalsInstance() = default;
};

Q_GLOBAL_STATIC_WITH_ARGS(TalvoraGlobalsInstance, sTalvoraGlobalsInstance, ())

} // namespace

TalvoraGlobals::TalvoraGlobals()
    : mBluegeneTmpDir(envPath("BG_TMPDIR", QStringLiteral("/tmp")))
    , mIsDebugMode(false)
{
}

TalvoraGlobals* TalvoraGlobals::instance()
{
    return sTalvoraGlobalsInstance();
}

void TalvoraGlobals::setLocationsFromInstallPath(const QString& talvoraInstallPath)
{
    mInstallPath = talvoraInstallPath;
    const QDir root(talvoraInstallPath);
    mBinPath = root.filePath(QStringLiteral("bin"));
    mLibPath = root.filePath(QStringLiteral("lib"));
    mLibexecPath = root.filePath(QStringLiteral("libexec"));
    mMetricsPath = root.filePath(QStringLiteral("pelk/metrics"));
    mResourcesPath = root.filePath(QStringLiteral("resource"));
    mIconsPath = root.filePath(QStringLiteral("icons"));
    for (const QString& path : {mInstallPath, mBinPath, mLibPath, mLibexecPath}) {
        verifyPath(path);
    }
}

void TalvoraGlobals::setLocationsAsFlatPath(const QString& path)
{
    mInstallPath = path;
    mBinPath = path;
    mLibPath = path;
    mLibexecPath = path;
    mResourcesPath = path;
    mIconsPath = path;
}

void TalvoraGlobals::initPaths()
{
    setLocationsFromInstallPath(QCoreApplication::applicationDirPath() + QStringLiteral("/.."));
    mConfigDir = FileName::suiteDotConfigDir;
}

void TalvoraGlobals::verifyPath(const QString& path)
{
    if (!QDir(path).exists()) {
        qWarning("Unable to find directory '%s'.\n"
                 "Your Velmor product installation may be incomplete or corrupted.",
                 path.toLocal8Bit().constData());
    }
}
