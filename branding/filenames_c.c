#include "branding/filenames_c.h"

#define SUITE_FILE_NAME(name, cName, text) char* FileName##cName = text;
#include "branding/filenames.def"
