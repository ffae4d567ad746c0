#include "AVI/FileWriter.h"

namespace avi {

FileWriter::FileWriter() : VlResourceTypeBase(0x20495641, "AVI FileWriter") {}

FileWriter::~FileWriter() = default;

} // namespace avi
