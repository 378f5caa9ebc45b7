#pragma once
// The flat image information record.
#include "dicomdata/dicomsettings.h"

struct DICOMINFO : public CDicomInfoStatics {
};
