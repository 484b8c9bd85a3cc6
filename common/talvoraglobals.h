#pragma once

#include <QString>

/// The directories of the installation, one record for the process. The launcher fills it
/// with chooseInstallationLayout() right after it has created the application object. Until
/// then, all paths except the temporary directory of Blue Gene are null.
class TalvoraGlobals
{
public:
    /// The only instance, created by the first call, which is thread-safe, and destroyed at
    /// exit; null after that.
    static TalvoraGlobals* instance();

    /// Sets the paths of an installation with the root `talvoraInstallPath` and the
    /// directories bin, lib, libexec, resource, icons and pelk/metrics. Warns once about
    /// each of root, bin, lib and libexec that does not exist.
    void setLocationsFromInstallPath(const QString& talvoraInstallPath);
    /// Sets all paths to the one directory `path`, except metricsPath(), which does not
    /// change. Does not check that it exists.
    void setLocationsAsFlatPath(const QString& path);
    /// Sets the paths of an installation whose root is the parent of the executable's
    /// directory, as setLocationsFromInstallPath() does, and ".talvora" as the local
    /// configuration directory.
    void initPaths();

    void setLocalConfigDir(const QString& directory) { mConfigDir = directory; }
    void setDebugMode(bool debugMode) { mIsDebugMode = debugMode; }

    QString installPath() const { return mInstallPath; }
    QString binPath() const { return mBinPath; }
    QString libPath() const { return mLibPath; }
    QString libexecPath() const { return mLibexecPath; }
    QString localConfigDir() const { return mConfigDir; }
    QString resourcesPath() const { return mResourcesPath; }
    QString iconsPath() const { return mIconsPath; }
    QString metricsPath() const { return mMetricsPath; }
    /// The setting BG_TMPDIR as it was at construction; "/tmp" when it was not set.
    QString bluegeneTmpDir() const { return mBluegeneTmpDir; }
    bool isDebugMode() const { return mIsDebugMode; }

protected:
    TalvoraGlobals();

private:
    void verifyPath(const QString& path);

    QString mInstallPath;
    QString mBinPath;
    QString mLibPath;
    QString mLibexecPath;
    QString mConfigDir;
    QString mResourcesPath;
    QString mIconsPath;
    QString mMetricsPath;
    QString mBluegeneTmpDir;
    bool mIsDebugMode;
};
