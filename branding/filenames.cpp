#include "branding/filenames.h"

#include "branding/common/filenames_common_c.h"
#include "branding/filenames_c.h"

namespace FileName {

const QString zorvDebugger = QString::fromLatin1(FileNameZorvDebugger);
const QString zorvDebuggerS64FX = QString::fromLatin1(FileNameZorvDebuggerS64FX);
const QString zorvDebuggerLaunchMON = QString::fromLatin1(FileNameZorvDebuggerLaunchMON);
const QString zorvDebuggerBlueGene = QString::fromLatin1(FileNameZorvDebuggerBlueGene);
const QString zorvTreeserver = QString::fromLatin1(FileNameZorvTreeserver);
const QString zorvMpirun = QString::fromLatin1(FileNameZorvMpirun);
const QString zorvClient = QString::fromLatin1(FileNameZorvClient);
const QString zorvUntar = QString::fromLatin1(FileNameZorvUntar);
const QString zorvUtil = QString::fromLatin1(FileNameZorvUtil);
const QString zorvUtilGui = QString::fromLatin1(FileNameZorvUtilGui);
const QString zorvRemoteDaemon = QString::fromLatin1(FileNameZorvRemoteDaemon);
const QString suiteExecutable = QString::fromLatin1(FileNameSuiteExecutable);
const QString suiteDotConfigDir = QString::fromLatin1(FileNameSuiteDotConfigDir);
const QString genericDotToolDir = QString::fromLatin1(FileNameGenericDotToolDir);
const QString genericToolDir = QString::fromLatin1(FileNameGenericToolDir);
const QString genericToolStub = QString::fromLatin1(FileNameGenericToolStub);
const QString suiteInstallationTarballName =
    QString::fromLatin1(FileNameSuiteInstallationTarballName);
const QString suiteInstallationDirectorySystem =
    QString::fromLatin1(FileNameSuiteInstallationDirectorySystem);
const QString suiteInstallationDirectoryUser =
    QString::fromLatin1(FileNameSuiteInstallationDirectoryUser);
const QString systemConfigFile = QString::fromLatin1(FileNameSystemConfigFile);
const QString userConfigFile = QString::fromLatin1(FileNameUserConfigFile);
const QString configFileHeader = QString::fromLatin1(FileNameConfigFileHeader);
const QString zorvDebuggerVersionKey = QString::fromLatin1(FileNameZorvDebuggerVersionKey);
const QString suitePathEnvVar = QString::fromLatin1(FileNameSuitePathEnvVar);
const QString suitePathDollarEnvVar = QString::fromLatin1(FileNameSuitePathDollarEnvVar);
const QString suiteSessionExtension = QString::fromLatin1(FileNameSuiteSessionExtension);
const QString suiteEnvVarPrefix = QString::fromLatin1(FileNameSuiteEnvVarPrefix);
const QString talvoraClient = QString::fromLatin1(FileNameTalvoraClient);
const QString suiteUserguidePdfName = QString::fromLatin1(FileNameSuiteUserguidePdfName);
const QString outOfMemory = QString::fromLatin1(FileNameOutOfMemory);

} // namespace FileName
