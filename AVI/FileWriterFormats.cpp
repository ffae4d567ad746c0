#include "AVI/FileWriterFormats.h"

#include <iterator>

namespace avi {

namespace {

using Row = Compression::ValidImageFormatT;

constexpr Row kSD[] = {
    {3, 0, 3, 1},  {1, 0, 3, 1},  {2, 0, 3, 1},  {5, 0, 16, 1}, {1, 0, 16, 1},
    {2, 0, 16, 1}, {5, 0, 15, 1}, {1, 0, 15, 1}, {2, 0, 15, 1}, {0, 0, 0, 1},
};

constexpr Row kDvcproHD[] = {
    {3, 1, 28, 1}, {5, 1, 28, 1}, {2, 2, 28, 1}, {1, 2, 28, 1},  {3, 2, 28, 1},  {5, 2, 28, 1}, {3, 2, 27, 1},
    {5, 2, 27, 1}, {1, 2, 27, 1}, {2, 2, 27, 1}, {8, 2, 27, 1},  {10, 2, 27, 1}, {0, 0, 0, 1},
};

constexpr Row kHD[] = {
    {2, 0, 28, 1}, {1, 0, 28, 1}, {3, 0, 28, 1},  {5, 0, 28, 1}, {4, 0, 28, 1}, {8, 0, 28, 1},  {10, 0, 28, 1},
    {2, 2, 27, 1}, {1, 2, 27, 1}, {3, 2, 27, 1},  {5, 2, 27, 1}, {8, 2, 27, 1}, {10, 2, 27, 1}, {9, 2, 27, 1},
    {0, 0, 0, 1},
};

template <std::size_t N>
void append(const Row (&rows)[N], VectorExt<Row>& out)
{
    for (const Row& row : rows)
        out.add(row);
}

} // namespace

void appendRasterTable(RasterTable table, VectorExt<Compression::ValidImageFormatT>& out)
{
    switch (table) {
    case RasterTable::SD: append(kSD, out); break;
    case RasterTable::DvcproHD: append(kDvcproHD, out); break;
    case RasterTable::HD: append(kHD, out); break;
    }
}

} // namespace avi
