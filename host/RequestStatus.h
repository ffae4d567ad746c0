#pragma once

namespace RequestStatus {

// States of a read request.
enum eFileReqStatus : int {
    eNone = 0,
    ePending = 1,
    eCompleted = 2,
    eFailed = 3,
    eCancelled = 4,
    eInProgress = 5,
    eStaysOpen = 6,
};

} // namespace RequestStatus
