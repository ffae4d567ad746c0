#include "host/resourceStr.h"

const char* resourceStr(int errorNumber)
{
    switch (errorNumber) {
    case 0: return "Failed";
    case 1: return "Success";
    case 2: return "Disk full";
    case 3: return "Request aborted";
    case 4: return "File exists";
    case 5: return "File not found";
    case 6: return "Access denied";
    case 7: return "Invalid handle";
    case 8: return "Buffer too small";
    case 11: return "End of file";
    case 12: return "Not implemented";
    case 13: return "Unexpected error";
    case 14: return "Not supported";
    case 15: return "Sharing violation";
    case 16: return "Invalid argument";
    case 17: return "Invalid state";
    case 2005: return "Extraction not supported";
    case 2013: return "AVI library error";
    default: return "Unknown error";
    }
}
