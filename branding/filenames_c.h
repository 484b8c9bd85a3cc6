/* The constants of filenames.h in C: names that depend on the branding. */

#pragma once

#ifdef __cplusplus
extern "C" {
#endif

extern char* FileNameSuiteExecutable;
extern char* FileNameSuiteDotConfigDir;
extern char* FileNameGenericDotToolDir;
extern char* FileNameGenericToolDir;
extern char* FileNameGenericToolStub;
extern char* FileNameSuiteInstallationTarballName;
extern char* FileNameSuiteInstallationDirectorySystem;
extern char* FileNameSuiteInstallationDirectoryUser;
extern char* FileNameSystemConfigFile;
extern char* FileNameUserConfigFile;
extern char* FileNameConfigFileHeader;
extern char* FileNameZorvDebuggerVersionKey;
extern char* FileNameSuitePathEnvVar;
extern char* FileNameSuitePathDollarEnvVar;
extern char* FileNameSuiteSessionExtension;
extern char* FileNameSuiteEnvVarPrefix;
extern char* FileNameTalvoraClient;
extern char* FileNameSuiteUserguidePdfName;
extern char* FileNameOutOfMemory;

#ifdef __cplusplus
}
#endif
