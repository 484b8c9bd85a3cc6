#pragma once

#include <QString>

/// The names of the suite's programs and files, without a directory, and of what is in
/// them. Initialized before main.
namespace FileName {

extern const QString zorvDebugger;
extern const QString zorvDebuggerS64FX;
extern const QString zorvDebuggerLaunchMON;
extern const QString zorvDebuggerBlueGene;
extern const QString zorvTreeserver;
extern const QString zorvMpirun;
extern const QString zorvClient;
extern const QString zorvUntar;
extern const QString zorvUtil;
extern const QString zorvUtilGui;
extern const QString zorvRemoteDaemon;
extern const QString suiteExecutable;
extern const QString suiteDotConfigDir;
extern const QString genericDotToolDir;
extern const QString genericToolDir;
extern const QString genericToolStub;
extern const QString suiteInstallationTarballName;
extern const QString suiteInstallationDirectorySystem;
extern const QString suiteInstallationDirectoryUser;
extern const QString systemConfigFile;
extern const QString userConfigFile;
extern const QString configFileHeader;
extern const QString zorvDebuggerVersionKey;
extern const QString suitePathEnvVar;
extern const QString suitePathDollarEnvVar;
extern const QString suiteSessionExtension;
extern const QString suiteEnvVarPrefix;
extern const QString talvoraClient;
extern const QString suiteUserguidePdfName;
extern const QString outOfMemory;

} // namespace FileName
