// The libFuzzer hooks of the targets that take a whole file as input and
// read it with the container classes: RIFF-aware mutation beside
// libFuzzer's own, and assertion lines kept off the fuzzer's output.
#include <cstddef>
#include <cstdint>

#include "ChunkSizeMutator.h"
#include "FuzzInput.h"

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maxSize,
                                               unsigned seed)
{
    return fuzz::mutateChunkSizes(data, size, maxSize, seed);
}

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    fuzz::quietStdout();
    return 0;
}
