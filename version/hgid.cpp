#include "version/hgid.h"

#include "version/hgid_c.h"

const char* HGID = HGID_C;
const char* HGBRANCH = HGBRANCH_C;
const char* ZORV_VERSION = ZORV_VERSION_C;
const char* ZORV_RELEASE_VERSION = ZORV_RELEASE_VERSION_C;
