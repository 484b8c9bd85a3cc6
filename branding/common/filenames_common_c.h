/* The constants of filenames.h in C: names that are the same in every product. */

#pragma once

#ifdef __cplusplus
extern "C" {
#endif

extern char* FileNameZorvDebugger;
extern char* FileNameZorvDebuggerS64FX;
extern char* FileNameZorvDebuggerLaunchMON;
extern char* FileNameZorvDebuggerBlueGene;
extern char* FileNameZorvTreeserver;
extern char* FileNameZorvMpirun;
extern char* FileNameZorvClient;
extern char* FileNameZorvUntar;
extern char* FileNameZorvUtil;
extern char* FileNameZorvUtilGui;
extern char* FileNameZorvRemoteDaemon;

#ifdef __cplusplus
}
#endif
