#pragma once
// String resources: the standard DICOM attribute names by description id.
#include <cstdint>
#include <string>

namespace zeldicom {

// The text of the resource id; empty when there is none.
std::u16string LoadResString(uint32_t id);

}  // namespace zeldicom
