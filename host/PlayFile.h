#pragma once
#include <cstdint>

#include "CriticalSection.h"
#include "IdStamp.h"
#include "IndexInfo.h"
#include "PlayFileMetadata.h"
#include "VlExport.h"
#include "VlPtr.h"
#include "VlWString.h"
#include "iObject.h"

// A media file the editor plays: its path, its metadata and its lock.
class VL_HOST_API PlayFile : public IdentifiedBase, public iObject
{
public:
    explicit PlayFile(const VlWString& path);
    ~PlayFile() override;

    // The group record that holds frame; the base has none.
    virtual void VlFileIxCache_open(Vl::Ptr<IndexInfo>& out, unsigned frame);
    virtual std::int64_t getAudioOrigin() const;
    virtual std::int64_t getVideoOrigin() const;

    const VlWString& fileName() const { return fileName_; }
    const Vl::Ptr<PlayFileMetadata>& metadata() const { return metadata_; }
    // The file lock: re-entrant.
    CriticalSection& lock() { return lock_; }

private:
    VlWString fileName_;
    Vl::Ptr<PlayFileMetadata> metadata_;
    [[maybe_unused]] std::int32_t hostValue_ = -1;
    CriticalSection lock_;
};
