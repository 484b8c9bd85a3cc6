#include "branding/filenames.h"

namespace FileName {

#define COMMON_FILE_NAME(name, cName, text) const QString name = QStringLiteral(text);
#define SUITE_FILE_NAME COMMON_FILE_NAME
#include "branding/filenames.def"

} // namespace FileName
