#pragma once
// velloro repair: a file whose writer was killed part-way made whole again,
// in place or as a new file.
#include <string>

#include "FileFormats/AVI/avilib/avilib.FileRepair.h"

namespace velloro {

// "repaired: 2942 frames, 117.7 s of audio; 1 partial frame dropped"
std::string repairSummaryLine(const Morvane::Avi::RepairSummary& summary);

// out null: in place. Prints the summary line; 0, or 1 with the reason on
// stderr and IN untouched (and no OUT left that the repair made).
int repairCommand(const char* in, const char* out, bool overwrite);

} // namespace velloro
