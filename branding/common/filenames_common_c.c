#include "branding/common/filenames_common_c.h"

char* FileNameZorvDebugger = "zorv-debugger";
char* FileNameZorvDebuggerS64FX = "zorv-debugger-fx10.s64fx";
char* FileNameZorvDebuggerLaunchMON = "zorv-debugger-lmon";
char* FileNameZorvDebuggerBlueGene = "zorv-debugger-bluegene";
char* FileNameZorvTreeserver = "zorv-treeserver";
char* FileNameZorvMpirun = "zorv-mpirun";
char* FileNameZorvClient = "zorv-client";
char* FileNameZorvUntar = "zorv-untar";
char* FileNameZorvUtil = "zorv-util";
char* FileNameZorvUtilGui = "zorv-util-gui";
char* FileNameZorvRemoteDaemon = "zorv-remoted";
