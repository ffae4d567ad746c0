#pragma once
#include "host/VlResourceTypeBase.h"

namespace avi {

// The component through which the editor writes AVI files.
class FileWriter : public VlResourceTypeBase
{
public:
    FileWriter();
    ~FileWriter() override;
};

} // namespace avi
