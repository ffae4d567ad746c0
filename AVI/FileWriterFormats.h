#pragma once
// The rasters offered with each compression the writer resource lists.
#include <cstdint>

#include "host/SupportedFormat.h"

namespace avi {

enum class RasterTable { SD, DvcproHD, HD };

// Appends the table's rows, its closing row of zeros included, in order.
void appendRasterTable(RasterTable table, VectorExt<Compression::ValidImageFormatT>& out);

} // namespace avi
