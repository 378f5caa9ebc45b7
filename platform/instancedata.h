#pragma once
// The instance record of the host's data-access layer: one referenced
// object, as the structured report hands its key images back to the host.
#include <string>

class CInstanceData {
public:
    // The argument is the host's database key; -1 marks a record that is not
    // (yet) stored in the host's database.
    explicit CInstanceData(long key) : m_nKey(key) {}
    virtual ~CInstanceData() = default;

    long m_nKey;
    std::u16string m_sSOPClassUID;
    std::u16string m_sSOPInstanceUID;
};
