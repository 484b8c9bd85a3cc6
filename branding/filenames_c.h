/* The constants of filenames.h in C: names that depend on the branding. */

#pragma once

#ifdef __cplusplus
extern "C" {
#endif

#define SUITE_FILE_NAME(name, cName, text) extern char* FileName##cName;
#include "branding/filenames.def"

#ifdef __cplusplus
}
#endif
