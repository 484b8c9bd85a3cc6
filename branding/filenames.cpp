#include "branding/filenames.h"

#include "branding/common/filenames_common_c.h"
#include "branding/filenames_c.h"

namespace FileName {

#define COMMON_FILE_NAME(name, cName, text)                                                        \
    const QString name = QString::fromLatin1(FileName##cName);
#define SUITE_FILE_NAME COMMON_FILE_NAME
#include "branding/filenames.def"

} // namespace FileName
