#pragma once
#include "VlPluginBase.h"

// A plug-in that provides devices or media resources.
class VlDeviceDriverBase : public VlPluginBase
{
public:
    using VlPluginBase::VlPluginBase;
};
