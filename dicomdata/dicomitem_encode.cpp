// Data set encoding: recalculation and save passes, files, in-place rewrite.
#include "dicomdata/dicomitem.h"

bool CDicomItem::SaveToFile(const std::u16string&) const
{
    return false;  // the encoder is not written yet
}
