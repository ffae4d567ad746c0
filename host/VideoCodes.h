#pragma once
#include <cstdint>

// The editor's value sets for pictures.
namespace Vl {

enum ScanMode : std::uint32_t {
    eScanUnknown = 0,
    eUpperFieldFirst = 1,
    eLowerFieldFirst = 2,
    eProgressive = 3,
    eProgressiveSegmented = 4,
};

enum AspectCode : std::uint32_t {
    eAspectUnknown = 0,
    eAspect4x3 = 1,
    eAspect16x9 = 2,
    eAspect256x135 = 10,
};

enum ColourMatrix : std::uint32_t { eMatrixUnknown = 0, eMatrixRec601 = 1, eMatrixRec709 = 2 };

// Chroma layout codes of the colour description.
enum ColourLayout : std::uint32_t {
    eLayoutUnknown = 0,
    eLayout420 = 3,
    eLayout422 = 4,
    eLayout444 = 5,
};

// The editor's frame rates; eFrameRateNone when a rate has no equivalent.
enum FrameRate : std::uint32_t {
    eFrameRateNone = 0,
    eFrameRate23_976 = 1,
    eFrameRate24 = 2,
    eFrameRate25 = 3,
    eFrameRate29_97 = 4,
    eFrameRate30 = 5,
    eFrameRate50 = 6,
    eFrameRate59_94 = 7,
    eFrameRate60 = 8,
};

} // namespace Vl
