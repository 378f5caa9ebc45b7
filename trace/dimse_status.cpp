#include "trace/dimse_status.h"

namespace {

using C = StatusClass;
constexpr uint16_t kAny = 0, kStoreRq = 0x0001, kFindRq = 0x0020, kMoveRq = 0x0021;

constexpr DimseStatus kStatuses[] = {
    // C-STORE (PS3.4 B.2.3)
    {kStoreRq, 0x0000, 0x0000, C::kSuccess, "success", nullptr},
    {kStoreRq, 0xB000, 0xB000, C::kWarning, "warning: coercion of data elements", nullptr},
    {kStoreRq, 0xB006, 0xB006, C::kWarning, "warning: elements discarded", nullptr},
    {kStoreRq, 0xB007, 0xB007, C::kWarning, "warning: data set does not match SOP class", nullptr},
    {kStoreRq, 0xA700, 0xA7FF, C::kFailure, "refused: out of resources", nullptr},
    {kStoreRq, 0xA900, 0xA9FF, C::kFailure, "failed: data set does not match SOP class", nullptr},
    {kStoreRq, 0xC000, 0xCFFF, C::kFailure, "failed: cannot understand", nullptr},
    {kStoreRq, 0x0122, 0x0122, C::kFailure, "refused: SOP class not supported", nullptr},
    {kStoreRq, 0x0124, 0x0124, C::kFailure, "refused: not authorized", nullptr},
    {kStoreRq, 0x0211, 0x0211, C::kFailure, "failed: unrecognized operation", nullptr},
    {kStoreRq, 0x0212, 0x0212, C::kFailure, "failed: mistyped argument", nullptr},
    {kStoreRq, 0x0117, 0x0117, C::kFailure, "failed: invalid SOP instance", nullptr},
    {kStoreRq, 0x0110, 0x0110, C::kFailure, "failed: processing failure", nullptr},
    {kStoreRq, 0x0111, 0x0111, C::kFailure, "failed: duplicate SOP instance", nullptr},
    // C-FIND (PS3.4 C.4.1.1.4)
    {kFindRq, 0x0000, 0x0000, C::kSuccess, "Success", nullptr},
    {kFindRq, 0xFF00, 0xFF01, C::kPending, "Pending: Matches are continuing", nullptr},
    {kFindRq, 0xFE00, 0xFE00, C::kCancel, "Cancel: Matching terminated due to Cancel request", nullptr},
    {kFindRq, 0xA700, 0xA700, C::kFailure, "Refused: Out of Resources", nullptr},
    {kFindRq, 0xA900, 0xA900, C::kFailure, "Failed: Identifier does not match SOP Class", nullptr},
    {kFindRq, 0xC000, 0xCFFF, C::kFailure, "Failed: Unable to Process", nullptr},
    // C-MOVE (PS3.4 C.4.2.1.5)
    {kMoveRq, 0x0000, 0x0000, C::kSuccess, "Success: sub-operations complete, no failures", nullptr},
    {kMoveRq, 0xFF00, 0xFF00, C::kPending, "Pending: sub-operations are continuing", nullptr},
    {kMoveRq, 0xFE00, 0xFE00, C::kCancel, "Cancel: sub-operations terminated due to Cancel indication", nullptr},
    {kMoveRq, 0xB000, 0xB000, C::kWarning, "Warning: sub-operations complete, one or more failures", nullptr},
    {kMoveRq, 0xA701, 0xA701, C::kFailure, "Refused: Out of Resources, unable to calculate number of matches", nullptr},
    {kMoveRq, 0xA702, 0xA702, C::kFailure, "Refused: Out of Resources, unable to perform sub-operations", nullptr},
    {kMoveRq, 0xA801, 0xA801, C::kFailure, "Refused: Move Destination unknown", nullptr},
    {kMoveRq, 0xA900, 0xA900, C::kFailure, "Failed: Identifier does not match SOP Class", nullptr},
    {kMoveRq, 0x0122, 0x0122, C::kFailure, "Refused: SOP Class not supported", nullptr},
    {kMoveRq, 0x0124, 0x0124, C::kFailure, "Refused: Not authorized", nullptr},
    {kMoveRq, 0xC000, 0xCFFF, C::kFailure, "Failed: Unable to Process", nullptr},
    // Every request (PS3.7 C), the DIMSE-N words, and the print statuses (PS3.4 H.4)
    {kAny, 0x0000, 0x0000, C::kSuccess, "Success", "SUCCESS"},
    {kAny, 0x0001, 0x0001, C::kWarning, "Warning: requested optional attributes are not supported",
     "REQUESTED OPTIONAL ATTRIBUTES ARE NOT SUPPORTED"},
    {kAny, 0x0105, 0x0105, C::kFailure, "Failure: no such attribute", "NO SUCH ATTRIBUTE"},
    {kAny, 0x0106, 0x0106, C::kFailure, "Failure: invalid attribute value", "INVALID ATTRIBUTE VALUE"},
    {kAny, 0x0107, 0x0107, C::kWarning, "Warning: attribute list error", "ATTRIBUTE LIST ERROR"},
    {kAny, 0x0110, 0x0110, C::kFailure, "Failure: processing failure", "PROCESSING FAILURE"},
    {kAny, 0x0111, 0x0111, C::kFailure, "Failure: duplicate SOP instance", "DUPLICATE SOP INSTANCE"},
    {kAny, 0x0112, 0x0112, C::kFailure, "Failure: no such SOP instance", "NO SUCH OBJECT INSTANCE"},
    {kAny, 0x0113, 0x0113, C::kFailure, "Failure: no such event type", "NO SUCH EVENT TYPE"},
    {kAny, 0x0114, 0x0114, C::kFailure, "Failure: no such argument", "NO SUCH ARGUMENT"},
    {kAny, 0x0115, 0x0115, C::kFailure, "Failure: invalid argument value", "INVALID ARGUMENT VALUE"},
    {kAny, 0x0116, 0x0116, C::kWarning, "Warning: attribute value out of range", nullptr},
    {kAny, 0x0117, 0x0117, C::kFailure, "Failure: invalid object instance", "INVALID OBJECT INSTANCE"},
    {kAny, 0x0118, 0x0118, C::kFailure, "Failure: no such SOP class", "NO SUCH SOP CLASS"},
    {kAny, 0x0119, 0x0119, C::kFailure, "Failure: class-instance conflict", "CLASS INSTANCE CONFLICT"},
    {kAny, 0x0120, 0x0120, C::kFailure, "Failure: missing attribute", "MISSING ATTRIBUTE"},
    {kAny, 0x0121, 0x0121, C::kFailure, "Failure: missing attribute value", "MISSING ATTRIBUTE VALUE"},
    {kAny, 0x0122, 0x0122, C::kFailure, "Failure: SOP class not supported", "REFUSED: SOP CLASS NOT SUPPORTED"},
    {kAny, 0x0123, 0x0123, C::kFailure, "Failure: no such action", nullptr},
    {kAny, 0x0124, 0x0124, C::kFailure, "Failure: not authorized", nullptr},
    {kAny, 0x0210, 0x0210, C::kFailure, "Failure: duplicate invocation", "DUPLICATE INVOCATION"},
    {kAny, 0x0211, 0x0211, C::kFailure, "Failure: unrecognized operation", "UNRECOGNIZED OPERATION"},
    {kAny, 0x0212, 0x0212, C::kFailure, "Failure: mistyped argument", "MISTYPED ARGUMENT"},
    {kAny, 0x0213, 0x0213, C::kFailure, "Failure: resource limitation", "RESOURCE LIMITATION"},
    {kAny, 0xA700, 0xA700, C::kFailure, "Refused: out of resources", "REFUSED: OUT OF RESOURCES"},
    {kAny, 0xA701, 0xA701, C::kFailure, "Refused: out of resources, unable to calculate number of matches",
     "REFUSED: OUT OF RESOURCES - UNABLE TO CALCULATE NUMBER OF MATCHES"},
    {kAny, 0xA702, 0xA702, C::kFailure, "Refused: out of resources, unable to perform sub-operations",
     "REFUSED: OUT OF RESOURCES - UNABLE TO PERFORM SUB-OPERATIONS"},
    {kAny, 0xA801, 0xA801, C::kFailure, "Refused: move destination unknown", "REFUSED: MOVE DESTINATION UNKNOWN"},
    {kAny, 0xA900, 0xA900, C::kFailure, "Failed: identifier does not match SOP class",
     "FAILED: IDENTIFIER DOES NOT MATCH SOP CLASS"},
    {kAny, 0xB000, 0xB000, C::kWarning, "Warning: sub-operations complete, one or more failures or warnings",
     "WARNING: SUB-OPERATIONS COMPLETE - ONE OR MORE FAILURES OR WARNINGS"},
    {kAny, 0xB006, 0xB006, C::kWarning, "Warning: elements discarded", "WARNING: ELEMENTS DISCARDED"},
    {kAny, 0xB007, 0xB007, C::kWarning, "Warning: data set does not match SOP class",
     "WARNING: DATA SET DOES NOT MATCH SOP CLASS"},
    {kAny, 0xB600, 0xB600, C::kWarning, "memory allocation not supported", nullptr},
    {kAny, 0xB601, 0xB601, C::kWarning, "film session printing (collation) not supported", nullptr},
    {kAny, 0xB602, 0xB602, C::kWarning, "film session has no film box", nullptr},
    {kAny, 0xB603, 0xB603, C::kWarning, "film box has no image box (empty page)",
     "FILM BOX SOP INSTANCE HIERARCHY DOES NOT CONTAIN IMAGE BOX SOP INSTANCES (EMPTY PAGE)"},
    {kAny, 0xB604, 0xB604, C::kWarning, "image larger than the image box, demagnified", nullptr},
    {kAny, 0xB605, 0xB605, C::kWarning, "min or max density outside the printer's range", nullptr},
    {kAny, 0xB609, 0xB609, C::kWarning, "image larger than the image box, cropped", nullptr},
    {kAny, 0xB60A, 0xB60A, C::kWarning, "image larger than the image box, decimated", nullptr},
    {kAny, 0xC000, 0xC000, C::kFailure, "Failed: unable to process", "FAILED: UNABLE TO PROCESS"},
    {kAny, 0xC600, 0xC600, C::kFailure, "film session has no film box", nullptr},
    {kAny, 0xC601, 0xC601, C::kFailure, "unable to create print job, print queue full", nullptr},
    {kAny, 0xC602, 0xC602, C::kFailure, "unable to create print job, print queue full",
     "UNABLE TO CREATE PRINT JOB SOP INSTANCE: PRINT QUEUE IS FULL"},
    {kAny, 0xC603, 0xC603, C::kFailure, "image size larger than the image box",
     "IMAGE SIZE IS LARGER THAN IMAGE BOX SIZE (USING THE SPECIFIED MAGNIFICATION VALUE)"},
    {kAny, 0xC604, 0xC604, C::kFailure, "image position collision: several images for one position",
     "IMAGE POSITION COLLISION: MULTIPLE IMAGES ASSIGNED TO SINGLE IMAGE POSITION"},
    {kAny, 0xC605, 0xC605, C::kFailure, "insufficient memory in the printer to store the image",
     "INSUFFICIENT MEMORY IN PRINTER TO STORE THE IMAGE"},
    {kAny, 0xC606, 0xC606, C::kFailure, "more than one VOI LUT box in the image",
     "MORE THAN ONE VOI LUT BOX CONTAINED IN THE IMAGE"},
    {kAny, 0xC613, 0xC613, C::kFailure, "combined print image larger than the image box", nullptr},
    {kAny, 0xFE00, 0xFE00, C::kCancel, "Cancel: sub-operations terminated due to Cancel indication",
     "CANCEL: SUB-OPERATIONS TERMINATED DUE TO CANCEL INDICATION"},
    {kAny, 0xFF00, 0xFF00, C::kPending, "Pending: sub-operations are continuing",
     "PENDING: SUB-OPERATIONS ARE CONTINUING"},
    {kAny, 0xFF01, 0xFF01, C::kPending, "Pending: matches are continuing", "PENDING: MATCHES ARE CONTINUING"},
};

const DimseStatus* FindIn(uint16_t request, uint16_t status)
{
    for (const DimseStatus& row : kStatuses)
        if (row.request == request && status >= row.first && status <= row.last)
            return &row;
    return nullptr;
}

}

const DimseStatus* FindDimseStatus(uint16_t request, uint16_t status)
{
    const DimseStatus* row = request != kAny ? FindIn(request, status) : nullptr;
    return row ? row : FindIn(kAny, status);
}

StatusClass ClassifyDimseStatus(uint16_t request, uint16_t status)
{
    if (const DimseStatus* row = FindDimseStatus(request, status))
        return row->statusClass;
    return (status & 0xF000) == 0xB000 ? C::kWarning : C::kFailure;
}

const char* DimseStatusTraceName(uint16_t status)
{
    const DimseStatus* row = FindIn(kAny, status);
    return row ? row->traceName : nullptr;
}
