#pragma once
#include "AudioChannelCache.h"
#include "AudioInterleaver.h"
#include "PlayFile.h"
#include "VlExport.h"

// A file opened by a reader resource.
class VL_HOST_API FileReadInstance : public virtual PlayFile
{
public:
    enum OpenType : int { eOpenForPlayback = 0, eOpenForImport = 1, eOpenForInfo = 2 };

    explicit FileReadInstance(OpenType type);
    ~FileReadInstance() override;

    // Fills the metadata; false when the file has nothing the editor can play.
    virtual bool readMetadata() = 0;

    AudioInterleaver& interleaver() { return interleaver_; }
    AudioChannelCache& channelCache() { return channelCache_; }
    OpenType openType() const { return openType_; }

private:
    AudioInterleaver interleaver_;
    AudioChannelCache channelCache_;
    OpenType openType_;
};
