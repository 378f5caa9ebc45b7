#pragma once
// The interface through which the host's data-access layer saves an object.
#include <string>

class CDicomItemToSave {
public:
    virtual bool SaveToFile(const std::u16string& path) const = 0;
    virtual ~CDicomItemToSave() = default;
};
