#include "branding/filenames_c.h"

char* FileNameSuiteExecutable = "zorv.bin";
char* FileNameSuiteDotConfigDir = ".talvora";
char* FileNameGenericDotToolDir = ".talvora";
char* FileNameGenericToolDir = "talvora";
char* FileNameGenericToolStub = "talvora";
char* FileNameSuiteInstallationTarballName = "kinnet.tgz";
char* FileNameSuiteInstallationDirectorySystem = "/opt/velmor/kinnet";
char* FileNameSuiteInstallationDirectoryUser = "velmor/kinnet";
char* FileNameSystemConfigFile = "system.config";
char* FileNameUserConfigFile = "user.config";
char* FileNameConfigFileHeader = "Config File";
char* FileNameZorvDebuggerVersionKey = "zorv debugger version";
char* FileNameSuitePathEnvVar = "TALVORA_KINNET_PATH";
char* FileNameSuitePathDollarEnvVar = "$TALVORA_KINNET_PATH";
char* FileNameSuiteSessionExtension = "session";
char* FileNameSuiteEnvVarPrefix = "TALVORA_";
char* FileNameTalvoraClient = "talvora-client";
char* FileNameSuiteUserguidePdfName = "userguide-kinnet.pdf";
char* FileNameOutOfMemory = "out_of_memory";
