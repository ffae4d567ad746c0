#pragma once
// velloro export and render: writing AVI files through the plug-in's
// writer component, as the editor's export and render do.
#include <cstdint>
#include <string>

#include "host/FileReaderResource.h"
#include "host/FileWriterResource.h"

namespace velloro {

class Progress;

struct RenderOptions
{
    std::uint32_t fcc = 0x59565955; // UYVY
    std::uint32_t width = 1920;
    std::uint32_t height = 1080;
    std::uint32_t rateNum = 30000;
    std::uint32_t rateDen = 1001;
    double seconds = 2.0;
    std::uint32_t channels = 2; // 0: no audio
    std::uint32_t sampleRate = 48000;
    std::uint32_t scanMode = 0; // the editor's scan code; 0: what the picture size usually is
    // The first frame's label: HH:MM:SS:FF, or HH:MM:SS;FF for drop frame; empty for none.
    std::string timecode{};
};


// Each writes out completely or leaves no file; false with a one-line reason.
// The written file is read back through reader to check that it is whole.
// Interrupted (interruptSignal()), each ends the file after the frames
// written so far and is false with "stopped at frame N of M (interrupted)".
bool renderFile(Vl::FileReaderResource& reader, Vl::FileWriterResource& writer, const std::wstring& out, const RenderOptions& options,
                Progress* progress, std::string& error);
bool exportFile(Vl::FileReaderResource& reader, Vl::FileWriterResource& writer, const std::wstring& in,
                const std::wstring& out, Progress* progress, std::string& error);

// Neither writes over IN, nor over an existing OUT unless overwrite.
// Quiet: no progress and no summary line.
int renderCommand(const char* out, bool overwrite, const RenderOptions& options, bool quiet = false);
int exportCommand(const char* in, const char* out, bool overwrite, bool quiet = false);

} // namespace velloro
