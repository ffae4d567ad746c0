#pragma once
#include "AudMetadata.h"
#include "EditLabel.h"
#include "ShotVideoMetadata.h"
#include "VlExport.h"
#include "VlWString.h"
#include "configb.h"
#include "iObject.h"

// Everything the editor knows of a media file before decoding it.
class VL_HOST_API PlayFileMetadata : public iObject
{
public:
    explicit PlayFileMetadata(const VlWString& path);
    ~PlayFileMetadata() override;

    const VlWString& path() const { return path_; }
    ShotVideoMetadata& video() { return video_; }
    const ShotVideoMetadata& video() const { return video_; }
    Aud::Metadata& audio() { return audio_; }
    const Aud::Metadata& audio() const { return audio_; }
    configb& config() { return config_; }
    const configb& config() const { return config_; }
    const edit_label& startLabel() const { return startLabel_; }
    void setStartLabel(const edit_label& l) { startLabel_ = l; }

private:
    VlWString path_;
    ShotVideoMetadata video_;
    Aud::Metadata audio_;
    configb config_;
    edit_label startLabel_;
};
