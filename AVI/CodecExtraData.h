#pragma once
// The codec bytes written after a video stream's format: the MPEG-2 media
// type block and the Matrox 4:2:2 block.
#include <cstdint>

#include "host/FileWriterParams.h"

namespace avi {

constexpr unsigned short kMpeg2BlockSize = 212;
constexpr unsigned short kMatroxYUYVBlockSize = 24;

// Each allocates data (released with delete[]) and fills it. 1, or 0 when
// the memory was not there (the MPEG-2 forms then give size 0 and still 1).
int setMpeg2Params(const Vl::FileWriterParams& params, unsigned char*& data, unsigned short& size);
int setMatroxMpeg2Params(const Vl::FileWriterParams& params, unsigned char*& data, unsigned short& size);
int setMatroxYUYVdata(const Vl::FileWriterParams& params, unsigned char*& data, unsigned short& size);

// Bytes per row of the Matrox 4:2:2 block.
std::uint32_t matroxRowStride(const Vl::FileWriterParams& params);

} // namespace avi
