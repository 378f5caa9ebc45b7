#pragma once
// The host's instance finder: answers where an instance of a SOP class is
// stored. Implementations search their own store (a DICOMDIR, a database).
#include <string>

class CInstanceFinder {
public:
    virtual ~CInstanceFinder() = default;
    // The instance's file ID (as the store names it), or false when unknown.
    virtual bool Find(const std::u16string& sopClassUID, const std::u16string& sopInstanceUID,
                      std::u16string& fileId) const = 0;
};
