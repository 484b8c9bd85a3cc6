/* The constants of hgid.h in C. */

#pragma once

#ifdef __cplusplus
extern "C" {
#endif

extern char* HGID_C;
extern char* HGBRANCH_C;
extern char* ZORV_VERSION_C;
extern char* ZORV_RELEASE_VERSION_C;

#ifdef __cplusplus
}
#endif
