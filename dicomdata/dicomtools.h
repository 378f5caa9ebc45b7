#pragma once
// Small library-wide helpers: the Implementation Version Name written into
// new objects, and the character set label used when none is given.
#include <cstdint>
#include <string>

class CDicomTools {
public:
    // "major_minor_rev" of the library, with one blank appended when the
    // length is odd so the SH value needs no further padding.
    static std::u16string GetVqImplementationVersionName();
    static std::u16string GetDefaultISOCharacterset();
};

// An exported plain record that the library itself does not use.
class CTagValueTest {
public:
    CTagValueTest() = default;
    CTagValueTest(const CTagValueTest&) = default;
    CTagValueTest& operator=(const CTagValueTest&) = default;
    virtual ~CTagValueTest() = default;

    int32_t m_nFirst = -1;
    int32_t m_nSecond = -1;
    std::u16string m_sFirst;
    std::u16string m_sSecond;
};

// The module entry: process attach reads the library's version into the
// version statics (false when it cannot be read); detach releases nothing.
// Attach runs by itself at start-up, before any object is built.
extern "C" bool ZelDicomModuleAttach();
extern "C" bool ZelDicomModuleDetach();
