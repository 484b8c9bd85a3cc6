#include "branding/common/filenames_common_c.h"

#define COMMON_FILE_NAME(name, cName, text) char* FileName##cName = text;
#include "branding/filenames.def"
