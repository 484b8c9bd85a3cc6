// Where the suite is installed.

#pragma once

#include <QString>

/// The process-wide record of the installation's directories. The launcher
/// fills it once, right after it has created its application object, by one of
/// the two layout setters; until then every path but the Blue Gene temporary
/// directory is null.
class TalvoraGlobals
{
public:
    /// The one instance, made at the first call and destroyed at exit; null
    /// after that. The first calls may come from several threads at once.
    static TalvoraGlobals* instance();

    /// An installation below `talvoraInstallPath`, with the directories bin,
    /// lib, libexec, resource, icons and pelk/metrics. Warns, once each, when
    /// the root, bin, lib or libexec does not exist, and goes on.
    void setLocationsFromInstallPath(const QString& talvoraInstallPath);
    /// Everything in the one directory `path`, but the metrics, which stay as
    /// they are. Nothing is checked.
    void setLocationsAsFlatPath(const QString& path);
    /// An installation whose root is the parent of the executable's directory,
    /// with ".talvora" as the local configuration directory.
    void initPaths();

    /// The name of the local configuration directory.
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
    /// The setting BG_TMPDIR at construction; "/tmp" when it is not set.
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
