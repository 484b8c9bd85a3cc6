/* The constants of filenames.h in C: names that are the same in every product. */

#pragma once

#ifdef __cplusplus
extern "C" {
#endif

#define COMMON_FILE_NAME(name, cName, text) extern char* FileName##cName;
#include "branding/filenames.def"

#ifdef __cplusplus
}
#endif
